// The host's side of an update on the emulated board: on the PC's end of the
// board's UART (a pty), the update command, then `sb --ymodem FILE` paced like
// the board's 115200-baud line, then the board's answer. Exit status 0 when
// the board answered "ymodem updata ok"; what came back is printed.
//
//   quenvarile-paced-sb TTY FILE
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "paced_line.h"

int main(int argc, char **argv) {
  if (argc != 3) {
    fputs("usage: quenvarile-paced-sb TTY FILE\n", stderr);
    return 2;
  }
  const int fd = open(argv[1], O_RDWR | O_NOCTTY);
  termios raw{};
  if (fd < 0 || tcgetattr(fd, &raw) != 0) {
    perror(argv[1]);
    return 2;
  }
  cfmakeraw(&raw);
  tcsetattr(fd, TCSANOW, &raw);
  tcflush(fd, TCIFLUSH);  // position frames sent before the command are no concern of sb's
  const unsigned char update[] = {0x81, 0x01, 0x0e, 0x7f, 0x00, 0xff};
  if (write(fd, update, sizeof update) != sizeof update) return 2;
  const int sb = runPacedSb(fd, kUartBytesPerSecond, {"--ymodem", argv[2]}, 300000);
  fprintf(stderr, "quenvarile-paced-sb: sb ended with %d\n", sb);
  std::string seen;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  // Either answer ends the wait: "ymodem updata ok" or "ymodem updata err".
  while (seen.find("ymodem updata ok") == std::string::npos &&
         seen.find("ymodem updata err") == std::string::npos &&
         std::chrono::steady_clock::now() < end) {
    pollfd p{fd, POLLIN, 0};
    char buf[256];
    const ssize_t n = poll(&p, 1, 200) > 0 ? read(fd, buf, sizeof buf) : 0;
    if (n > 0) seen.append(buf, static_cast<size_t>(n));
  }
  for (unsigned char c : seen) {
    if (c >= 0x20 && c < 0x7f)
      putchar(c);
    else
      printf("\\x%02x", c);
  }
  putchar('\n');
  return sb == 0 && seen.find("ymodem updata ok") != std::string::npos ? 0 : 1;
}
