#include "daemon_child.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace {

std::string describeStatus(int status) {
  if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
  return "signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
}

}  // namespace

pid_t daemonChildStart(const std::vector<std::string> &argv) {
  std::vector<char *> args;
  for (const std::string &a : argv) args.push_back(const_cast<char *>(a.c_str()));
  args.push_back(nullptr);
  const pid_t parent = getpid();
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(127);
  setpgid(0, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int sig : {SIGINT, SIGTERM}) signal(sig, SIG_DFL);
  execv(args[0], args.data());
  _exit(127);
}

bool daemonChildEnded(pid_t pid, std::string *how) {
  int status = 0;
  pid_t r;
  while ((r = waitpid(pid, &status, WNOHANG)) == -1 && errno == EINTR) {}
  if (r == 0) return false;
  *how = r == pid ? describeStatus(status) : "gone";
  return true;
}

std::string daemonChildStop(pid_t pid, double graceSeconds) {
  constexpr useconds_t kStepMicros = 100000;  // 0.1 s between looks
  constexpr int kStepsBetweenSignals = 5;     // 0.5 s: the first signal's handler must have run
  std::string how;
  for (int step = 0; step < graceSeconds * 1e6 / kStepMicros; ++step) {
    if (step % kStepsBetweenSignals == 0) {
      kill(pid, SIGTERM);
      kill(pid, SIGCONT);
    }
    usleep(kStepMicros);
    if (daemonChildEnded(pid, &how)) return how;
  }
  kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {}
  return describeStatus(status) + " after " + std::to_string(int(graceSeconds)) + " s of SIGTERM";
}
