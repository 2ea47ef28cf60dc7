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
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

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
  EXPECT_GE(fd, 0);
  tcgetattr(fd, &t);
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
  const std::string out = GetCapturedStdout();
  EXPECT_THAT(err, HasSubstr("Can't Open Serial Port"));
  EXPECT_THAT(err, HasSubstr("SetupSerial 1"));
  EXPECT_THAT(out, HasSubstr("uart open err.\n"));
  EXPECT_EQ(uartFd, -1);
}

TEST_F(UartTest, OpenSetsRaw8N1AndOnlyTableSpeeds) {
  PtyLine line;
  CaptureStdout();
  ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 57600, 0, 8, 1, 0), 0);  // not in the table
  EXPECT_THAT(GetCapturedStdout(), testing::Not(HasSubstr("set speed")));
  termios t = lineSettings(line);
  EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600));  // as the line was
  EXPECT_EQ(t.c_lflag & ICANON, 0u);                         // raw all the same
  uartClose();

  CaptureStdout();
  ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
  const std::string out = GetCapturedStdout();
  EXPECT_THAT(out, HasSubstr("fd->open=" + std::to_string(uartFd) + "\nset speed 115200 \n"));
  t = lineSettings(line);
  EXPECT_EQ(cfgetospeed(&t), B115200);
  EXPECT_EQ(cfgetispeed(&t), B115200);
  EXPECT_EQ(t.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
  EXPECT_EQ(t.c_cflag & (PARENB | CSTOPB | CRTSCTS), 0u);
  EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ISIG), 0u);
  EXPECT_EQ(t.c_iflag & (ICRNL | IXON), 0u);
  EXPECT_EQ(t.c_oflag & OPOST, 0u);
  EXPECT_EQ(t.c_cc[VMIN], 1);
}

TEST_F(UartTest, ReceivePollsAndBytesPassUnchangedBothWays) {
  PtyLine line;
  ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
  uint8_t byte;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(uartRecv(&byte, 1), -1);
  // Not a timing assertion: only that the call is a poll, not a wait.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

  // Bytes a cooked tty would translate or swallow pass unchanged.
  const Bytes fromHost = {0x81, 0x0d, 0x0a, 0x03, 0x11, 0xff};
  line.send(fromHost);
  Bytes got(6);
  int have = 0;
  ASSERT_TRUE(eventually([&] {
    const int n = uartRecv(got.data() + have, 6 - have);
    if (n > 0) have += n;
    return have == 6;
  }));
  EXPECT_EQ(got, fromHost);

  CaptureStdout();
  const uint8_t toHost[] = {0xff, 0x0a, 0x25};
  EXPECT_EQ(uartSend(toHost, 3), 3);
  EXPECT_EQ(GetCapturedStdout(), "send data is :\nff 0a 25 \n");
  EXPECT_EQ(line.receive(3), (Bytes{0xff, 0x0a, 0x25}));
}
