#include "support/paced_line.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "edge_config.h"
#include "support/eventually.h"

PacedLine::PacedLine(int bytesPerSecond) : rate_(bytesPerSecond) {
  termios raw{};
  cfmakeraw(&raw);
  cfsetspeed(&raw, B115200);
  char device[128];
  if (openpty(&deviceMaster_, &deviceSlave_, device, &raw, nullptr) != 0 ||
      openpty(&hostMaster_, &hostSlave_, nullptr, &raw, nullptr) != 0) {
    ADD_FAILURE() << "openpty failed";
    return;
  }
  if (symlink(device, QV_SERIAL_DEVICE) != 0) ADD_FAILURE() << "cannot link " << QV_SERIAL_DEVICE;
  for (int fd : {deviceMaster_, hostMaster_}) fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  relay_ = std::thread([this] { relay(); });
}

PacedLine::~PacedLine() {
  stop_ = true;
  if (relay_.joinable()) relay_.join();
  for (int fd : {deviceMaster_, deviceSlave_, hostMaster_, hostSlave_}) close(fd);
}

// Each direction queues what it reads and earns rate_ bytes of sending per
// second while something waits; an idle line earns nothing.
void PacedLine::relay() {
  struct Direction {
    int from, to;
    std::string queue;
    double credit;
  } dirs[] = {{hostMaster_, deviceMaster_, {}, 0}, {deviceMaster_, hostMaster_, {}, 0}};
  auto last = std::chrono::steady_clock::now();
  while (!stop_) {
    pollfd p[] = {{dirs[0].from, POLLIN, 0}, {dirs[1].from, POLLIN, 0}};
    poll(p, 2, 1);
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - last).count();
    last = now;
    for (Direction &d : dirs) {
      char buf[4096];
      const ssize_t n = read(d.from, buf, sizeof buf);
      if (n > 0) d.queue.append(buf, static_cast<size_t>(n));
      d.credit = d.queue.empty() ? 0 : d.credit + seconds * rate_;
      const size_t due = std::min(d.queue.size(), static_cast<size_t>(d.credit));
      const ssize_t w = std::max<ssize_t>(due > 0 ? write(d.to, d.queue.data(), due) : 0, 0);
      d.queue.erase(0, static_cast<size_t>(w));
      d.credit -= static_cast<double>(w);
    }
  }
}

void PacedLine::send(const std::string &bytes) const {
  ASSERT_EQ(write(hostSlave_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

std::string PacedLine::receiveUntil(const std::string &until, int timeoutMs) const {
  std::string got;
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (got.find(until) == std::string::npos && std::chrono::steady_clock::now() < end) {
    pollfd p{hostSlave_, POLLIN, 0};
    char c;
    if (poll(&p, 1, 10) > 0 && read(hostSlave_, &c, 1) == 1) got += c;
  }
  return got;
}

int PacedLine::runSb(const std::vector<std::string> &args, int timeoutMs) const {
  const pid_t pid = fork();
  if (pid == 0) {
    const int log = open("sb.log", O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(hostSlave_, 0);
    dup2(hostSlave_, 1);
    dup2(log, 2);
    std::vector<char *> argv{const_cast<char *>("sb")};
    for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execvp("sb", argv.data());
    _exit(127);
  }
  int status = 0;
  if (!eventually([&] { return waitpid(pid, &status, WNOHANG) != 0; }, timeoutMs)) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
