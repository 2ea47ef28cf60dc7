// The serial port layer over a pseudo-terminal.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>

#include "edge_config.h"
#include "hostlink/uart.h"
#include "pty_line.h"
#include "support/sandbox.h"

using testing::HasSubstr;
using namespace testing::internal;

namespace {

struct UartTest : testing::Test {
  Sandbox sandbox;
  void TearDown() override {
    if (uartFd >= 0) uartClose();
  }
};

termios lineSettings(const PtyLine &line) {
  termios t{};
  const int fd = open(line.slavePath().c_str(), O_RDWR | O_NOCTTY);
  EXPECT_EQ(tcgetattr(fd, &t), 0);
  close(fd);
  return t;
}

}  // namespace

TEST_F(UartTest, MissingDeviceReportsBothErrorsAndLeavesTheDescriptorClosed) {
  uartFd = 7;  // whatever it was before, a failed open stores -1
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), -1);
  const std::string err = GetCapturedStderr();
  EXPECT_THAT(GetCapturedStdout(), HasSubstr("uart open err.\n"));
  EXPECT_THAT(err, HasSubstr("Can't Open Serial Port"));
  EXPECT_THAT(err, HasSubstr("SetupSerial 1"));
  EXPECT_EQ(uartFd, -1);
}

TEST_F(UartTest, OpenSetsRaw8N1AndBytesPassUnchangedBothWays) {
  PtyLine line;
  ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 57600, 0, 8, 1, 0), 0);  // not in the table
  termios t = lineSettings(line);
  EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600));  // as the line was
  EXPECT_EQ(t.c_lflag & ICANON, 0u);                         // raw all the same
  uartClose();

  ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
  t = lineSettings(line);
  EXPECT_EQ(cfgetospeed(&t), B115200);
  EXPECT_EQ(cfgetispeed(&t), B115200);
  EXPECT_EQ(t.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8));
  EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ISIG), 0u);
  EXPECT_EQ(t.c_iflag & (ICRNL | IXON), 0u);
  EXPECT_EQ(t.c_oflag & OPOST, 0u);
  EXPECT_EQ(t.c_cc[VMIN], 1);

  uint8_t byte;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(uartRecv(&byte, 1), -1);  // nothing came: times out
  // Not a timing assertion: only that the call is a poll, not a wait.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

  const Bytes bytes = {0x81, 0x0d, 0x0a, 0x03, 0x11, 0xff};  // a cooked tty would change these
  line.send(bytes);
  Bytes got(bytes.size());
  int have = 0;
  ASSERT_TRUE(eventually([&] {
    const int n = uartRecv(got.data() + have, static_cast<int>(got.size()) - have);
    if (n > 0) have += n;
    return have == static_cast<int>(got.size());
  }));
  EXPECT_EQ(got, bytes);
  CaptureStdout();
  EXPECT_EQ(uartSend(bytes.data(), 6), 6);
  EXPECT_EQ(GetCapturedStdout(), "send data is :\n81 0d 0a 03 11 ff \n");
  EXPECT_EQ(line.receive(6), bytes);
}
