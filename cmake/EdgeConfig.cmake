# Build-time configuration of every operating-system edge of the daemon.
# Defaults are the board's values; QV_SANDBOX switches them to paths relative
# to the working directory and to shell commands that only leave a trace.

if(QV_SANDBOX)
  set(_root "root")
  set(_tmp "tmp")
  set(_tty "dev/ttyS1")
  set(_gpio "dev/gpiocustom")
  set(_sync "echo sync >> commands.log")
  set(_reboot "echo reboot >> commands.log")
else()
  set(_root "/root")
  set(_tmp "/tmp")
  set(_tty "/dev/ttyS1")
  set(_gpio "/dev/gpiocustom")
  set(_sync "sync")
  set(_reboot "reboot")
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
set(QV_CMD_REMOVE "rm -rf" CACHE STRING "Shell command prefix that removes a file")
set(QV_CMD_MOVE "mv" CACHE STRING "Shell command prefix that moves a file")
set(QV_CMD_CHMOD "chmod 777" CACHE STRING "Shell command prefix that makes a file executable")

configure_file(${CMAKE_CURRENT_LIST_DIR}/edge_config.h.in
               ${CMAKE_BINARY_DIR}/generated/edge_config.h @ONLY)

# Power-cut seam of the update installation, sandbox builds only: with
# QV_SANDBOX_UPDATE_CUT_AFTER=<step> in its environment the daemon ends at once
# after that installation step (src/update/update_install.cpp), so tests can
# check what a power cut at that moment leaves on disk.
if(QV_SANDBOX)
  add_compile_definitions(QV_UPDATE_POWER_CUT_SEAM=1)
endif()
