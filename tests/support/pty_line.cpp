#include "support/pty_line.h"

#include <poll.h>
#include <pty.h>
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
  eventually(
      [&] {
        const Bytes b = receive(SIZE_MAX, 0);
        got.append(b.begin(), b.end());
        return got.find(until) != std::string::npos;
      },
      timeoutMs);
  return got;
}
