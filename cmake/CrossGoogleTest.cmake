# GoogleTest for a cross build: the target architecture's own package when it
# is installed (libgtest-dev:armhf, libgmock-dev:armhf), otherwise built here
# from Debian's sources (package googletest, /usr/src/googletest) with the
# cross compiler. Either way the targets GTest::gtest, GTest::gtest_main and
# GTest::gmock exist afterwards.

find_package(GTest QUIET)
if(TARGET GTest::gtest AND TARGET GTest::gmock)
  return()
endif()

set(QV_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH
    "GoogleTest sources built when the target has no GoogleTest package")
if(NOT EXISTS ${QV_GOOGLETEST_SOURCE}/CMakeLists.txt)
  message(FATAL_ERROR "No GoogleTest for ${CMAKE_LIBRARY_ARCHITECTURE}: install "
          "libgtest-dev:armhf and libgmock-dev:armhf, or googletest for its sources")
endif()
message(STATUS "Building GoogleTest from ${QV_GOOGLETEST_SOURCE}")

set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${QV_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(lib gtest gtest_main gmock gmock_main)
  if(NOT TARGET GTest::${lib})
    add_library(GTest::${lib} ALIAS ${lib})
  endif()
endforeach()
