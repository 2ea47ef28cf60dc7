// The serial port layer over a pseudo-terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include "edge_config.h"
#include "hostlink/uart.h"
#include "pty_line.h"
#include "support/output_capture.h"
#include "support/sandbox.h"

namespace {

termios lineSettings(const PtyLine &line) {
  termios t{};
  const int fd = open(line.slavePath().c_str(), O_RDWR | O_NOCTTY);
  EXPECT_EQ(tcgetattr(fd, &t), 0);
  close(fd);
  return t;
}

TEST(Uart, MissingDeviceFailsAndLeavesTheDescriptorClosed) {
  Sandbox sandbox;
  uartFd = 7;  // whatever it was before, a failed open stores -1
  const std::string err = stderrOf([] {
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), -1); }), "uart open err.\n");
  });
  EXPECT_NE(err.find("Can't Open Serial Port"), std::string::npos) << err;
  EXPECT_NE(err.find("SetupSerial 1"), std::string::npos) << err;
  EXPECT_EQ(uartFd, -1);
}

TEST(Uart, OpenSetsRaw8N1AndBytesPassUnchangedBothWays) {
  Sandbox sandbox;
  PtyLine line;
  stdoutOf([] { ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 57600, 0, 8, 1, 0), 0); });  // not in the table
  termios t = lineSettings(line);
  EXPECT_EQ(cfgetospeed(&t), static_cast<speed_t>(B9600));  // as the line was
  EXPECT_EQ(t.c_lflag & ICANON, 0u);                         // raw all the same
  uartClose();

  stdoutOf([] { ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0); });
  t = lineSettings(line);
  EXPECT_TRUE(cfgetospeed(&t) == B115200 && cfgetispeed(&t) == B115200);
  EXPECT_EQ(t.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8));
  EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ISIG), 0u);
  EXPECT_EQ(t.c_iflag & (ICRNL | IXON), 0u);
  EXPECT_EQ(t.c_oflag & OPOST, 0u);

  uint8_t byte;
  EXPECT_EQ(uartRecv(&byte, 1), -1);  // nothing came: a poll, not a wait
  const Bytes bytes = {0x81, 0x0d, 0x0a, 0x03, 0x11, 0xff};  // a cooked tty would change these
  line.send(bytes);
  Bytes got(bytes.size());
  int have = 0;
  ASSERT_TRUE(eventually([&] {
    const int n = uartRecv(got.data() + have, static_cast<int>(got.size()) - have);
    return (have += n > 0 ? n : 0) == static_cast<int>(got.size());
  }));
  EXPECT_EQ(got, bytes);
  stdoutOf([&] { EXPECT_EQ(uartSend(bytes.data(), 6), 6); });
  EXPECT_EQ(line.receive(6), bytes);
  uartClose();
}

}  // namespace
