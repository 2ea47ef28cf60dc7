// The host serial line: one tty in raw 8N1 mode, shared through uartFd by the
// command thread, the position and level reports and the firmware transfer.
#include "hostlink/uart.h"

#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "common/shared_word.h"
#include "edge_config.h"

int32_t uartFd = -1;

namespace {

struct SpeedRow {
  int baud;
  speed_t code;
};

// Speeds the line can be set to. A speed not listed leaves the line as it was.
const SpeedRow kSpeedTable[] = {
    {115200, B115200}, {19200, B19200}, {9600, B9600}, {4800, B4800},
    {2400, B2400},     {1200, B1200},   {300, B300},
};

// The receive poll is deliberately tiny: callers loop on it.
constexpr long kRecvPollMicros = 100;

void setRaw8N1(termios &options) {
  options.c_iflag &= ~(BRKINT | INPCK | ISTRIP | ICRNL | IXON);
  options.c_oflag &= ~OPOST;
  options.c_cflag &= ~(CRTSCTS | PARENB | CSTOPB | CSIZE);
  options.c_cflag |= CS8 | CREAD | CLOCAL;
  options.c_lflag &= ~(ISIG | ICANON | ECHO | ECHOE);
  options.c_cc[VTIME] = 1;  // tenths of a second between bytes
  options.c_cc[VMIN] = 1;
}

}  // namespace

// The flow-control, data-bit, stop-bit and parity arguments are accepted for
// the callers' sake; the line is always 8N1 without flow control.
int uartOpen(const char *path, int speed, int, int, int, int) {
  int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (fd < 0)
    perror("Can't Open Serial Port");
  else
    printf("fd->open=%d\n", fd);
  sharedStore(uartFd, fd);

  termios options;
  if (tcgetattr(fd, &options) != 0) {
    perror("SetupSerial 1");
    puts("uart open err.");
    return -1;
  }
  for (const SpeedRow &row : kSpeedTable) {
    if (row.baud == speed) {
      printf("set speed %d \n", speed);
      cfsetispeed(&options, row.code);
      cfsetospeed(&options, row.code);
    }
  }
  setRaw8N1(options);
  tcflush(fd, TCIFLUSH);
  if (tcsetattr(fd, TCSANOW, &options) != 0) {
    perror("com set error!\n");
    puts("uart open err.");
    return -1;
  }
  return 0;
}

// One non-blocking write: a full output queue makes it short, and then the
// queued output is dropped and the data is lost.
int uartSend(const uint8_t *buf, int len) {
  int fd = sharedLoad(uartFd);
  ssize_t written = write(fd, buf, static_cast<size_t>(len));
  if (written < len) {
    tcflush(fd, TCOFLUSH);
    return -1;
  }
  printf("send data is :\n");
  for (int i = 0; i < len; ++i) printf("%02x ", buf[i]);
  printf("\n");
  return static_cast<int>(written);
}

int uartRecv(uint8_t *buf, int len) {
  int fd = sharedLoad(uartFd);
  // A closed line (or one select cannot watch) reads like a failed select:
  // the read below reports the error.
  if (fd >= 0 && fd < FD_SETSIZE) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval timeout{0, kRecvPollMicros};
    if (select(fd + 1, &readable, nullptr, nullptr, &timeout) == 0) return -1;
  }
  return static_cast<int>(read(fd, buf, static_cast<size_t>(len)));
}

bool uartWaitReadable(int timeoutMillis) {
  const int fd = sharedLoad(uartFd);
  timeval timeout{timeoutMillis / 1000, (timeoutMillis % 1000) * 1000L};
  if (fd < 0 || fd >= FD_SETSIZE) {
    select(0, nullptr, nullptr, nullptr, &timeout);
    return true;
  }
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  const int ready = select(fd + 1, &readable, nullptr, nullptr, &timeout);
  if (ready < 0 && errno != EINTR) {
    // A descriptor select refuses (closed under us): pause as a time-out would.
    timeout = timeval{timeoutMillis / 1000, (timeoutMillis % 1000) * 1000L};
    select(0, nullptr, nullptr, nullptr, &timeout);
    return true;
  }
  return ready > 0;
}

int uartFlushInput() {
  tcflush(sharedLoad(uartFd), TCIFLUSH);
  return 0;
}

int uartClose() {
  int result = close(sharedLoad(uartFd));
  sharedStore(uartFd, -1);
  return result;
}

int hostLineOpen() { return uartOpen(QV_SERIAL_DEVICE, HOST_LINE_BAUD, 0, 8, 1, 0); }
