#include "pty_line.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "edge_config.h"

PtyLine::PtyLine() {
  termios raw{};
  cfmakeraw(&raw);
  cfsetspeed(&raw, B9600);  // a speed the daemon never sets
  char name[128];
  if (openpty(&master_, &slave_, name, &raw, nullptr) != 0) {
    ADD_FAILURE() << "openpty failed";
    return;
  }
  slavePath_ = name;
  if (symlink(name, QV_SERIAL_DEVICE) != 0) ADD_FAILURE() << "cannot link " << QV_SERIAL_DEVICE;
}

PtyLine::~PtyLine() {
  killSb();
  if (master_ >= 0) close(master_);
  if (slave_ >= 0) close(slave_);
}

void PtyLine::send(const Bytes &bytes) const {
  ASSERT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

Bytes PtyLine::receive(size_t count, int timeoutMs) const {
  Bytes got;
  while (got.size() < count) {
    pollfd p{master_, POLLIN, 0};
    if (poll(&p, 1, timeoutMs) <= 0) break;
    uint8_t buf[256];
    const ssize_t n = read(master_, buf, std::min(sizeof buf, count - got.size()));
    if (n <= 0) break;
    got.insert(got.end(), buf, buf + n);
  }
  return got;
}

Bytes PtyLine::receiveAll(int quietMs) const { return receive(SIZE_MAX, quietMs); }

std::string PtyLine::receiveUntil(const std::string &until, int timeoutMs) const {
  std::string got;
  eventually([&] {
    const Bytes b = receive(SIZE_MAX, 0);
    got.append(b.begin(), b.end());
    return got.find(until) != std::string::npos;
  }, timeoutMs);
  return got;
}

void PtyLine::startSb(const std::vector<std::string> &args) {
  sb_ = fork();
  if (sb_ != 0) return;
  const int log = open("sb.log", O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(master_, 0);
  dup2(master_, 1);
  dup2(log, 2);
  std::vector<char *> argv{const_cast<char *>("sb")};
  for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
  argv.push_back(nullptr);
  execvp("sb", argv.data());
  _exit(127);
}

bool PtyLine::waitSbExit(int timeoutMs) {
  if (sb_ > 0 && !eventually([&] { return waitpid(sb_, nullptr, WNOHANG) == sb_; }, timeoutMs))
    return false;
  sb_ = -1;
  return true;
}

void PtyLine::killSb() {
  if (sb_ <= 0) return;
  kill(sb_, SIGKILL);
  waitpid(sb_, nullptr, 0);
  sb_ = -1;
}
