// The supervised daemon as a child process.
#pragma once
#include <sys/types.h>

#include <string>
#include <vector>

// Starts argv[0] with these arguments in the current directory, with its own
// process group (a terminal's Ctrl-C reaches only the supervisor) and killed
// when the supervisor dies (a supervisor started again never finds an orphan
// holding the audio devices). Returns the pid, or -1.
pid_t daemonChildStart(const std::vector<std::string> &argv);

// Reaps the child without waiting. True when it has ended; *how says how
// ("exit 1", "signal 9 (Killed)").
bool daemonChildEnded(pid_t pid, std::string *how);

// Stops the child the way the daemon needs: SIGTERM, and SIGTERM again (the
// first only puts its audio into abort mode), each with a SIGCONT so that a
// stopped process takes them, then SIGKILL when it is still there after
// graceSeconds. Returns how it ended.
std::string daemonChildStop(pid_t pid, double graceSeconds);
