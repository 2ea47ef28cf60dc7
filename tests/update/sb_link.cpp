#include "sb_link.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <termios.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>

SbLink::SbLink(BoardEnd end) : end_(end) {
  master_ = posix_openpt(O_RDWR | O_NOCTTY);
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) return;
  slavePath_ = ptsname(master_);
  // Kept open so the line never hangs up while the board (re)opens its end.
  slave_ = open(slavePath_.c_str(), O_RDWR | O_NOCTTY);
  termios raw{};
  tcgetattr(slave_, &raw);
  cfmakeraw(&raw);
  tcsetattr(slave_, TCSANOW, &raw);
  if (end_ == kBoardOnMaster) fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
}

SbLink::SbLink(const std::vector<std::string> &options, const std::string &file) : SbLink(kBoardOnMaster) {
  start(options, file);
}

void SbLink::hostSend(const std::vector<uint8_t> &bytes) {
  if (write(hostFd(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) perror("hostSend");
}

void SbLink::start(const std::vector<std::string> &options, const std::string &file) {
  std::vector<std::string> args{"sb"};
  args.insert(args.end(), options.begin(), options.end());
  args.push_back(file);
  const int sbFd = hostFd();
  pid_ = fork();
  if (pid_ == 0) {
    int log = open("sb.log", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(sbFd, 0);
    dup2(sbFd, 1);
    dup2(log, 2);
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execvp("sb", argv.data());
    _exit(127);
  }
}

SbLink::~SbLink() {
  kill();
  if (master_ >= 0) close(master_);
  if (slave_ >= 0) close(slave_);
}

bool SbLink::waitExit(int timeoutMs) {
  if (pid_ <= 0) return true;
  bool ended = waitFor([&] { return waitpid(pid_, nullptr, WNOHANG) == pid_; }, timeoutMs);
  if (ended) pid_ = -1;
  return ended;
}

void SbLink::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::string SbLink::hostReceived(int timeoutMs, const std::string &until) {
  std::string got;
  waitFor(
      [&] {
        fd_set in;
        FD_ZERO(&in);
        FD_SET(hostFd(), &in);
        timeval none{0, 0};
        if (select(hostFd() + 1, &in, nullptr, nullptr, &none) == 1) {
          char buf[256];
          ssize_t n = read(hostFd(), buf, sizeof buf);
          if (n > 0) got.append(buf, static_cast<size_t>(n));
        }
        return got.find(until) != std::string::npos;
      },
      timeoutMs);
  return got;
}

namespace sbwire {
namespace {
int fd = -1;
std::mutex mutex;
std::string record;
}  // namespace

void attach(int boardFd) {
  std::lock_guard<std::mutex> lock(mutex);
  fd = boardFd;
  record.clear();
}

int send(const uint8_t *buf, int len) {
  std::lock_guard<std::mutex> lock(mutex);
  record.append(reinterpret_cast<const char *>(buf), static_cast<size_t>(len));
  return static_cast<int>(write(fd, buf, static_cast<size_t>(len)));
}

int recv(uint8_t *buf, int len) {  // like the host line: 100 us poll, then read
  fd_set in;
  FD_ZERO(&in);
  FD_SET(fd, &in);
  timeval poll{0, 100};
  if (select(fd + 1, &in, nullptr, nullptr, &poll) == 0) return -1;
  return static_cast<int>(read(fd, buf, static_cast<size_t>(len)));
}

std::string sent() {
  std::lock_guard<std::mutex> lock(mutex);
  return record;
}
}  // namespace sbwire
