# Install rules and the board's Debian package.
#
#   cmake --install <build> [--component ...]        # DESTDIR=<scratch root> for a staged install
#   cd <build> && cpack -G DEB                        # quenvarile_<version>_<arch>.deb
#
# The daemon goes where the system runs it from, <QV_ROOT_DIR>/quenvarile (an
# absolute /root on the board, whatever the prefix); the host console, the
# replay tool and the supervisor to <prefix>/bin; the systemd unit, which
# names those paths, to QV_SYSTEMD_UNIT_DIR. The prefix defaults to /usr here,
# so the unit and the package agree: stage with DESTDIR rather than --prefix.
# scripts/package-check builds the package from the armhf board build.

if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set(CMAKE_INSTALL_PREFIX /usr CACHE PATH "Install prefix" FORCE)
endif()
include(GNUInstallDirs)
set(QV_SYSTEMD_UNIT_DIR /lib/systemd/system CACHE PATH "Directory of the systemd unit")

configure_file(${PROJECT_SOURCE_DIR}/packaging/quenvarile.service.in
               ${PROJECT_BINARY_DIR}/packaging/quenvarile.service @ONLY)
# Debian wants the changelog compressed, reproducibly (no name or time in the header).
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/packaging/changelog.gz)

install(TARGETS quenvarile RUNTIME DESTINATION ${QV_ROOT_DIR})
install(TARGETS quenvarile-host quenvarile-replay quenvarile-supervise RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_BINARY_DIR}/packaging/quenvarile.service DESTINATION ${QV_SYSTEMD_UNIT_DIR})
# Public keys (minisign .pub files) that updates must be signed with, shipped
# in the package; none by default (keys can also be put there on the board).
set(QV_UPDATE_PUBLIC_KEYS "" CACHE STRING "Update keys (.pub files) the package installs")
if(QV_UPDATE_PUBLIC_KEYS)
  install(FILES ${QV_UPDATE_PUBLIC_KEYS} DESTINATION ${QV_UPDATE_KEYS_DIR}
          PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${PROJECT_BINARY_DIR}/packaging/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quenvarile)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(QV_PACKAGE_CONTACT "quenvarile developers <quenvarile@example.com>"
    CACHE STRING "Maintainer of the board's package")
set(CPACK_PACKAGE_CONTACT "${QV_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "talker direction finder for an 8-microphone array board")
# The summary is the synopsis line; this is the extended description below it.
string(CONCAT CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "The quenvarile daemon estimates from which direction a person is talking\n"
    "and reports it to a host microcontroller over a serial line. A systemd\n"
    "unit starts it at boot in /root through quenvarile-supervise, which\n"
    "restarts it when its heartbeat stops. Also the host console\n"
    "(quenvarile-host) and the estimator's replay tool (quenvarile-replay).")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)  # with the build's (cross) strip
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
