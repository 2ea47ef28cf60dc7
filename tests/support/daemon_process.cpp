#include "support/daemon_process.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

extern char **environ;

namespace {

constexpr std::chrono::milliseconds kPollInterval{20};

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string absoluteIn(const std::string &dir, const std::string &file) {
  return !file.empty() && file[0] == '/' ? file : dir + "/" + file;
}

std::string nameOf(const std::string &entry) { return entry.substr(0, entry.find('=')); }

// The test's environment with every NAME=value of `extra` added or replacing
// (a later entry for the same name wins over an earlier one).
std::vector<std::string> mergedEnvironment(const std::vector<std::string> &extra) {
  std::vector<std::string> merged;
  for (char **e = environ; *e != nullptr; ++e) merged.push_back(*e);
  for (const std::string &entry : extra) {
    std::string name = nameOf(entry);
    auto same = [&name](const std::string &e) { return nameOf(e) == name; };
    merged.erase(std::remove_if(merged.begin(), merged.end(), same), merged.end());
    merged.push_back(entry);
  }
  return merged;
}

}  // namespace

int countOccurrences(const std::string &haystack, const std::string &text) {
  if (text.empty()) return 0;
  int count = 0;
  for (size_t at = haystack.find(text); at != std::string::npos; at = haystack.find(text, at + text.size()))
    ++count;
  return count;
}

DaemonProcess::DaemonProcess(DaemonOptions options) : options_(std::move(options)) {
  // Everything the child needs is prepared before fork: after it, the child
  // only makes system calls.
  std::string outPath = absoluteIn(options_.workDir, options_.stdoutFile);
  std::string errPath = absoluteIn(options_.workDir, options_.stderrFile);
  std::vector<std::string> env = mergedEnvironment(options_.env);
  std::vector<char *> envp;
  for (std::string &e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> args = options_.args;
  args.insert(args.begin(), options_.program);
  std::vector<char *> argv;
  for (std::string &a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t parent = getpid();

  fflush(stdout);
  fflush(stderr);
  pid_ = fork();
  if (pid_ != 0) return;

  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(127);
  int in = open("/dev/null", O_RDONLY);
  int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (in < 0 || out < 0 || err < 0 || chdir(options_.workDir.c_str()) != 0) _exit(127);
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  // A test's signal mask and ignored signals must not leak into the daemon.
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int sig : {SIGINT, SIGTERM, SIGPIPE, SIGUSR1, SIGABRT}) ::signal(sig, SIG_DFL);
  execve(argv[0], argv.data(), envp.data());
  _exit(127);
}

DaemonProcess::~DaemonProcess() {
  if (pid_ > 0 && !ended_) {
    kill(pid_, SIGKILL);
    reap(true);
  }
}

std::string DaemonProcess::out() const { return readFile(absoluteIn(options_.workDir, options_.stdoutFile)); }
std::string DaemonProcess::err() const { return readFile(absoluteIn(options_.workDir, options_.stderrFile)); }

bool DaemonProcess::waitForOutput(const std::string &text, Timeout timeout, int count) {
  return waitForText(absoluteIn(options_.workDir, options_.stdoutFile), text, timeout, count);
}

bool DaemonProcess::waitForError(const std::string &text, Timeout timeout, int count) {
  return waitForText(absoluteIn(options_.workDir, options_.stderrFile), text, timeout, count);
}

bool DaemonProcess::waitForText(const std::string &file, const std::string &text, Timeout timeout, int count) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    bool gone = !running();  // checked before reading, so a last line before the end is seen
    if (countOccurrences(readFile(file), text) >= count) return true;
    if (gone || std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
}

bool DaemonProcess::signal(int sig) { return pid_ > 0 && !ended_ && kill(pid_, sig) == 0; }

bool DaemonProcess::reap(bool block) {
  if (pid_ <= 0) return false;
  if (ended_) return true;
  int status = 0;
  pid_t r;
  do {
    r = waitpid(pid_, &status, block ? 0 : WNOHANG);
  } while (r == -1 && errno == EINTR);
  if (r == pid_) {
    ended_ = true;
    status_ = status;
  }
  return ended_;
}

bool DaemonProcess::running() { return pid_ > 0 && !reap(false); }

bool DaemonProcess::waitForExit(Timeout timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (running()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return ended_;
}

int DaemonProcess::exitCode() const { return ended_ && WIFEXITED(status_) ? WEXITSTATUS(status_) : -1; }

int DaemonProcess::termSignal() const { return ended_ && WIFSIGNALED(status_) ? WTERMSIG(status_) : 0; }

std::string DaemonProcess::describeEnd() const {
  if (pid_ <= 0) return "not started";
  if (!ended_) return "running";
  if (WIFEXITED(status_)) return "exit " + std::to_string(WEXITSTATUS(status_));
  if (WIFSIGNALED(status_)) return "signal " + std::to_string(WTERMSIG(status_)) + " (" + strsignal(WTERMSIG(status_)) + ")";
  return "status " + std::to_string(status_);
}

SegmentSnapshot readStateSegment(const std::string &keyPath) {
  SegmentSnapshot snapshot;
  key_t key = ftok(keyPath.c_str(), 66);
  int id = key == -1 ? -1 : shmget(key, 0, 0);
  shmid_ds info{};
  if (id == -1 || shmctl(id, IPC_STAT, &info) == -1 || info.shm_segsz < 12) return snapshot;
  void *addr = shmat(id, nullptr, SHM_RDONLY);
  if (addr == reinterpret_cast<void *>(-1)) return snapshot;
  const uint8_t *bytes = static_cast<const uint8_t *>(addr);
  snapshot.present = true;
  snapshot.heartbeat = __atomic_load_n(reinterpret_cast<const uint32_t *>(bytes), __ATOMIC_ACQUIRE);
  snapshot.position = bytes[4];
  memcpy(&snapshot.updating, bytes + 8, sizeof snapshot.updating);
  shmdt(addr);
  return snapshot;
}
