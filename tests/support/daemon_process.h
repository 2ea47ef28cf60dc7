// The sandbox build of the daemon as a child process of a test: started in a
// working directory (normally a Sandbox) with extra environment, its standard
// output and error captured in daemon.stdout and daemon.stderr there. A child
// still running when the object goes away is killed and reaped; it is also
// killed if the thread that started it ends (so start it from the test's own
// thread), which covers a test process that crashes.
#pragma once
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "support/sandbox.h"

struct DaemonOptions {
  std::string workDir = ".";
  std::vector<std::string> env;   // "NAME=value", added to or replacing the test's environment
  std::vector<std::string> argv;  // another program and its arguments instead of the daemon
};

class DaemonProcess {
 public:
  using Timeout = std::chrono::milliseconds;
  // Generous enough for sanitizer builds and emulated runs on a loaded machine.
  static constexpr Timeout kDefaultTimeout{20000};

  explicit DaemonProcess(DaemonOptions options = {});
  ~DaemonProcess();
  DaemonProcess(const DaemonProcess &) = delete;
  DaemonProcess &operator=(const DaemonProcess &) = delete;

  std::string out() const { return readFile(outPath_); }  // standard output so far
  std::string err() const { return readFile(errPath_); }  // standard error so far

  // Wait until `text` occurs at least `count` times in the child's standard
  // output (or error). False on time-out, or when the child ended without it.
  bool waitForOutput(const std::string &text, Timeout timeout = kDefaultTimeout, int count = 1) {
    return waitForText(outPath_, text, timeout, count);
  }
  bool waitForError(const std::string &text, Timeout timeout = kDefaultTimeout, int count = 1) {
    return waitForText(errPath_, text, timeout, count);
  }

  // False if it could not be sent or the child is gone.
  bool signal(int sig) { return pid_ > 0 && !ended_ && kill(pid_, sig) == 0; }
  bool running() { return pid_ > 0 && !reap(false); }
  pid_t pid() const { return pid_; }  // reaps the child when it has ended
  // Wait for the child to end; false on time-out (the child is left running).
  bool waitForExit(Timeout timeout = kDefaultTimeout);
  // After the end: exit status, or -1 when a signal ended it.
  int exitCode() const { return ended_ && WIFEXITED(status_) ? WEXITSTATUS(status_) : -1; }
  // After the end: the ending signal, or 0 when it exited.
  int termSignal() const { return ended_ && WIFSIGNALED(status_) ? WTERMSIG(status_) : 0; }

 private:
  bool waitForText(const std::string &file, const std::string &text, Timeout timeout, int count);
  bool reap(bool block);

  std::string outPath_, errPath_;
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
};

int countOccurrences(const std::string &haystack, const std::string &text);

// The daemon's shared state segment seen from outside, as a supervisor sees
// it. `keyPath` is the directory the key is made from (the sandbox's root/).
struct SegmentSnapshot {
  bool present = false;  // a segment exists for the key
  uint32_t heartbeat = 0;
  uint8_t position = 0;
  int32_t updating = 0;
};
SegmentSnapshot readStateSegment(const std::string &keyPath);
