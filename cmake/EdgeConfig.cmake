# Build-time configuration of every operating-system edge of the daemon.
# Defaults are the board's values; QV_SANDBOX switches them to paths relative
# to the working directory and to shell commands that only leave a trace.

# The edges that differ between the two profiles, with each profile's default.
set(_qv_edge_vars QV_ROOT_DIR QV_TMP_DIR QV_SERIAL_DEVICE QV_GPIO_DEVICE QV_SHM_KEY_PATH QV_CMD_SYNC QV_CMD_REBOOT
    QV_UPDATE_KEYS_DIR)
set(_qv_board_edges /root /tmp /dev/ttyS1 /dev/gpiocustom /root sync reboot /etc/quenvarile/update-keys)
set(_qv_sandbox_edges root tmp dev/ttyS1 dev/gpiocustom root
    "echo sync >> commands.log" "echo reboot >> commands.log" etc/quenvarile/update-keys)
if(QV_SANDBOX)
  set(_qv_profile sandbox)
  set(_qv_edges ${_qv_sandbox_edges})
  set(_qv_other_edges ${_qv_board_edges})
else()
  set(_qv_profile board)
  set(_qv_edges ${_qv_board_edges})
  set(_qv_other_edges ${_qv_sandbox_edges})
endif()
list(GET _qv_edges 0 _root)
list(GET _qv_edges 1 _tmp)
list(GET _qv_edges 2 _tty)
list(GET _qv_edges 3 _gpio)
list(GET _qv_edges 5 _sync)
list(GET _qv_edges 6 _reboot)
list(GET _qv_edges 7 _keys)

# Cache entries keep their value over later configures, so switching the
# profile in an existing build directory re-derives the defaults here: a
# cached value that is still the other profile's default was never chosen by
# anyone and is dropped (the lines below then set this profile's default). A
# value chosen by the user, on the command line or in the cache, differs from
# both defaults and stays; a test configuration then refuses it below if it
# points outside the working directory.
if(NOT "${_QV_EDGE_PROFILE}" STREQUAL "${_qv_profile}")
  foreach(_var _other IN ZIP_LISTS _qv_edge_vars _qv_other_edges)
    if(DEFINED CACHE{${_var}} AND "$CACHE{${_var}}" STREQUAL "${_other}")
      unset(${_var} CACHE)
    endif()
  endforeach()
  set(_QV_EDGE_PROFILE "${_qv_profile}" CACHE INTERNAL "Profile the edge defaults were derived for")
endif()

set(QV_ROOT_DIR "${_root}" CACHE STRING "Directory of the executable, markers and update files")
set(QV_TMP_DIR "${_tmp}" CACHE STRING "Directory of the debug recordings")
set(QV_SERIAL_DEVICE "${_tty}" CACHE STRING "Host serial line")
set(QV_GPIO_DEVICE "${_gpio}" CACHE STRING "GPIO character device of the watchdog")
set(QV_SHM_KEY_PATH "${_root}" CACHE STRING "Path given to ftok for the shared state segment")
set(QV_PCM_DIGITMIC "hw:0,3" CACHE STRING "ALSA device of the digital microphone array")
set(QV_PCM_ANALOGMIC "hw:0,1" CACHE STRING "ALSA device of the analog microphones")
set(QV_PCM_LINE "hw:0,2" CACHE STRING "ALSA device of line-in capture and line-out playback")
set(QV_CMD_SYNC "${_sync}" CACHE STRING "Shell command that flushes file systems")
set(QV_CMD_REBOOT "${_reboot}" CACHE STRING "Shell command that reboots the board")
set(QV_UPDATE_KEYS_DIR "${_keys}" CACHE STRING
    "Directory of the public keys an update must be signed with (none: updates unauthenticated)")

configure_file(${CMAKE_CURRENT_LIST_DIR}/edge_config.h.in
               ${CMAKE_BINARY_DIR}/generated/edge_config.h @ONLY)

# Power-cut seam of the update installation, sandbox builds only: with
# QV_SANDBOX_UPDATE_CUT_AFTER=<step> in its environment the daemon ends at once
# after that installation step (src/update/update_install.cpp), so tests can
# check what a power cut at that moment leaves on disk. A board build gets it
# only when asked (-DQV_POWER_CUT_SEAM=ON): the daemon the emulated board's
# tests send as an update (tests/board), never the package's.
option(QV_POWER_CUT_SEAM "board build with the update's power-cut seam (emulated board tests)" OFF)
if(QV_SANDBOX OR QV_POWER_CUT_SEAM)
  add_compile_definitions(QV_UPDATE_POWER_CUT_SEAM=1)
endif()

# Tests run the real daemon and its shell commands: refuse to configure them
# unless every edge path stays inside the working directory and sync and
# reboot only leave a trace.
function(qv_require_sandbox_edges)
  foreach(var QV_ROOT_DIR QV_TMP_DIR QV_SERIAL_DEVICE QV_GPIO_DEVICE QV_SHM_KEY_PATH QV_UPDATE_KEYS_DIR)
    if(IS_ABSOLUTE "${${var}}" OR "${${var}}" MATCHES "^~|(^|/)\\.\\.(/|$)")
      message(FATAL_ERROR "Tests would touch the machine: ${var} is '${${var}}', not a path inside "
                          "the working directory. Use -DQV_SANDBOX=ON and do not set ${var} yourself.")
    endif()
  endforeach()
  foreach(var QV_CMD_SYNC QV_CMD_REBOOT)
    if(NOT "${${var}}" MATCHES "^echo ")
      message(FATAL_ERROR "Tests would run a real command: ${var} is '${${var}}'. In a test "
                          "build it may only leave a trace (echo ... >> commands.log).")
    endif()
  endforeach()
endfunction()
