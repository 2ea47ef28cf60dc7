# A board build directory reconfigured for tests must end sandboxed or refuse
# to configure; values the user chose survive a profile switch.
#   cmake -DSOURCE=<project> -DWORK=<scratch dir> -DGENERATOR=<gen> -P sandbox_guard_test.cmake
set(dir "${WORK}/build")
file(REMOVE_RECURSE "${WORK}")

# configure(<expect: ok|fail> args...): runs a configure of ${dir}; ${out} gets its output.
function(configure expect)
  execute_process(COMMAND ${CMAKE_COMMAND} -S "${SOURCE}" -B "${dir}" -G "${GENERATOR}" ${ARGN}
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if((expect STREQUAL "ok") AND NOT rc EQUAL 0)
    message(FATAL_ERROR "configure ${ARGN} failed:\n${out}\n${err}")
  elseif((expect STREQUAL "fail") AND rc EQUAL 0)
    message(FATAL_ERROR "configure ${ARGN} succeeded but must refuse")
  endif()
  set(out "${err}" PARENT_SCOPE)
endfunction()

# expect_cache(VAR value): the directory's cache holds this value.
function(expect_cache var value)
  load_cache("${dir}" READ_WITH_PREFIX got_ ${var})
  if(NOT "${got_${var}}" STREQUAL "${value}")
    message(FATAL_ERROR "${var} is '${got_${var}}', expected '${value}'")
  endif()
endfunction()

configure(ok -DQV_SANDBOX=OFF -DQV_TESTS=OFF)
expect_cache(QV_ROOT_DIR /root)
expect_cache(QV_CMD_REBOOT reboot)

# The same directory switched to the sandbox: every edge default follows.
configure(ok -DQV_SANDBOX=ON -DQV_TESTS=ON -DQV_TMP_DIR=scratch)
foreach(pair "QV_ROOT_DIR=root" "QV_SHM_KEY_PATH=root" "QV_SERIAL_DEVICE=dev/ttyS1"
             "QV_GPIO_DEVICE=dev/gpiocustom" "QV_CMD_SYNC=echo sync >> commands.log"
             "QV_CMD_REBOOT=echo reboot >> commands.log" "QV_TMP_DIR=scratch")
  string(REPLACE "=" ";" pair "${pair}")
  list(GET pair 0 var)
  list(GET pair 1 value)
  expect_cache(${var} "${value}")
endforeach()

# And back: the board's defaults return, the user's choice stays.
configure(ok -DQV_SANDBOX=OFF -DQV_TESTS=OFF)
expect_cache(QV_ROOT_DIR /root)
expect_cache(QV_TMP_DIR scratch)

# Edges chosen by the user that would leave the sandbox refuse a test configure.
foreach(bad "QV_CMD_REBOOT=/sbin/reboot" "QV_ROOT_DIR=/srv/qv" "QV_SERIAL_DEVICE=../ttyS1" "QV_CMD_SYNC=sync -f")
  configure(fail -DQV_SANDBOX=ON -DQV_TESTS=ON "-D${bad}")
  if(NOT out MATCHES "Tests would")
    message(FATAL_ERROR "${bad}: refused without the guard's message:\n${out}")
  endif()
  string(REGEX REPLACE "=.*" "" var "${bad}")
  configure(ok -DQV_SANDBOX=ON -DQV_TESTS=ON -U${var})
endforeach()
file(REMOVE_RECURSE "${WORK}")
