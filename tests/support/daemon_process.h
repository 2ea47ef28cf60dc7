// The real daemon (or another program) as a child process of a test: started
// in a working directory (normally a Sandbox) with extra environment, its
// standard output and error captured in files there, signalled and waited for.
// A process still running when the object goes away is killed and reaped; it
// is also killed if the thread that started it ends (so start it from the
// test's own thread), which covers a test process that crashes.
#pragma once
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

struct DaemonOptions {
  std::string workDir = ".";              // the child's working directory
  std::vector<std::string> env;           // "NAME=value", added to or replacing the test's environment
  std::vector<std::string> args;          // arguments after the program name
  std::string program = QV_DAEMON_PATH;   // the sandbox build of the daemon
  std::string stdoutFile = "daemon.stdout";  // relative to workDir
  std::string stderrFile = "daemon.stderr";  // relative to workDir
};

class DaemonProcess {
 public:
  using Timeout = std::chrono::milliseconds;
  // Generous enough for sanitizer builds and emulated runs on a loaded machine.
  static constexpr Timeout kDefaultTimeout{20000};

  explicit DaemonProcess(DaemonOptions options = {});
  ~DaemonProcess();  // SIGKILL and reap if still running
  DaemonProcess(const DaemonProcess &) = delete;
  DaemonProcess &operator=(const DaemonProcess &) = delete;

  pid_t pid() const { return pid_; }
  bool started() const { return pid_ > 0; }

  std::string out() const;  // everything written to standard output so far
  std::string err() const;  // everything written to standard error so far

  // Wait until `text` occurs at least `count` times in the child's standard
  // output (or error). False on time-out, or when the child ended without it.
  bool waitForOutput(const std::string &text, Timeout timeout = kDefaultTimeout, int count = 1);
  bool waitForError(const std::string &text, Timeout timeout = kDefaultTimeout, int count = 1);

  bool signal(int sig);  // kill(pid, sig); false if it could not be sent or the child is gone

  // Whether the child still runs (reaps it when it has ended).
  bool running();
  // Wait for the child to end; false on time-out (the child is left running).
  bool waitForExit(Timeout timeout = kDefaultTimeout);
  // After the child ended: its exit status, or -1 when a signal ended it.
  int exitCode() const;
  // After the child ended: the signal that ended it, or 0 when it exited.
  int termSignal() const;
  // The child's end in words, for assertion messages ("running", "exit 1", "signal 2").
  std::string describeEnd() const;

 private:
  bool waitForText(const std::string &file, const std::string &text, Timeout timeout, int count);
  bool reap(bool block);

  DaemonOptions options_;
  pid_t pid_ = -1;
  bool ended_ = false;
  int status_ = 0;
};

// Occurrences of `text` in `haystack`.
int countOccurrences(const std::string &haystack, const std::string &text);

// A look at the daemon's shared state segment from outside, as a supervisor
// sees it. `keyPath` is the directory the key is made from (the sandbox's
// root/ in the sandbox build).
struct SegmentSnapshot {
  bool present = false;  // a segment exists for the key
  uint32_t heartbeat = 0;
  uint8_t position = 0;
  int32_t updating = 0;
};
SegmentSnapshot readStateSegment(const std::string &keyPath);
