#include "support/daemon_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "support/eventually.h"

int countOccurrences(const std::string &haystack, const std::string &text) {
  int count = 0;
  for (size_t at = haystack.find(text); !text.empty() && at != std::string::npos;
       at = haystack.find(text, at + text.size()))
    ++count;
  return count;
}

DaemonProcess::DaemonProcess(DaemonOptions options)
    : outPath_(options.workDir + "/daemon.stdout"), errPath_(options.workDir + "/daemon.stderr") {
  // env(1) adds the entries to the inherited environment, so after fork the
  // child only makes system calls.
  std::vector<std::string> args{"/usr/bin/env"};
  args.insert(args.end(), options.env.begin(), options.env.end());
  if (options.argv.empty()) options.argv = {QV_DAEMON_PATH};
  args.insert(args.end(), options.argv.begin(), options.argv.end());
  std::vector<char *> argv;
  for (std::string &a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t parent = getpid();
  fflush(nullptr);
  pid_ = fork();
  if (pid_ != 0) return;

  prctl(PR_SET_PDEATHSIG, SIGKILL);
  int in = open("/dev/null", O_RDONLY),
      out = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  int err = open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (getppid() != parent || in < 0 || out < 0 || err < 0 || chdir(options.workDir.c_str()) != 0)
    _exit(127);
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  // A test's signal mask and ignored signals must not leak into the daemon.
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int sig : {SIGINT, SIGTERM, SIGPIPE, SIGUSR1, SIGABRT}) ::signal(sig, SIG_DFL);
  execv(argv[0], argv.data());
  _exit(127);
}

DaemonProcess::~DaemonProcess() {
  if (signal(SIGKILL)) reap(true);
}

bool DaemonProcess::waitForText(const std::string &file, const std::string &text, Timeout timeout,
                                int count) {
  bool found = false;
  eventually(
      [&] {
        const bool gone =
            !running();  // checked before reading, so a last line before the end is seen
        found = countOccurrences(readFile(file), text) >= count;
        return found || gone;
      },
      int(timeout.count()));
  return found;
}

bool DaemonProcess::reap(bool block) {
  if (pid_ <= 0 || ended_) return ended_;
  pid_t r;
  while ((r = waitpid(pid_, &status_, block ? 0 : WNOHANG)) == -1 && errno == EINTR) {}
  return ended_ = r == pid_;
}

bool DaemonProcess::waitForExit(Timeout timeout) {
  return eventually([this] { return !running(); }, int(timeout.count())) && ended_;
}

SegmentSnapshot readStateSegment(const std::string &keyPath) {
  SegmentSnapshot snapshot;
  const key_t key = ftok(keyPath.c_str(), 66);
  const int id = key == -1 ? -1 : shmget(key, 12, 0);  // fails for a missing or shorter segment
  const auto *bytes = static_cast<const uint8_t *>(id == -1 ? reinterpret_cast<void *>(-1)
                                                            : shmat(id, nullptr, SHM_RDONLY));
  if (bytes == reinterpret_cast<const uint8_t *>(-1)) return snapshot;
  snapshot.present = true;
  snapshot.heartbeat = __atomic_load_n(reinterpret_cast<const uint32_t *>(bytes), __ATOMIC_ACQUIRE);
  snapshot.position = bytes[4];
  memcpy(&snapshot.updating, bytes + 8, sizeof snapshot.updating);
  shmdt(bytes);
  return snapshot;
}
