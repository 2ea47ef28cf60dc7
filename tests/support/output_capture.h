// What a piece of code prints. The log-contract tests compare it; elsewhere it
// only keeps expected chatter out of the test log.
#pragma once
#include <gtest/gtest.h>

#include <string>

template <class F>
std::string stdoutOf(F f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

template <class F>
std::string stderrOf(F f) {
  testing::internal::CaptureStderr();
  f();
  return testing::internal::GetCapturedStderr();
}
