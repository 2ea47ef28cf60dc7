// quenvarile-host: host console for bring-up with a real or simulated board.
// Opens the tty at 115200 8N1 raw, prints what the device sends and sends
// host commands, either from command-line options in order or typed on stdin.
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "console_decoder.h"

namespace {

constexpr int kQuietMillis = 100;  // a pause this long ends whatever is pending
constexpr int kMaxThreshold = kThresholdMask;

const char kUsage[] =
    "usage: quenvarile-host [--device TTY] [--raw-db] [ACTION...]\n"
    "actions, carried out in order:\n"
    "  --get-position          ask for the position\n"
    "  --start-test MAX MIN    start test mode with the level thresholds (0..127)\n"
    "  --stop-test             stop test mode\n"
    "  --reboot                reboot the board\n"
    "  --update                start a firmware update (then send the file by YMODEM)\n"
    "  --send HEX              send raw bytes, e.g. --send '81 01 0d 00 02 ff'\n"
    "  --listen SECONDS        print what the device sends for that long\n"
    "--raw-db: start test mode with level reports in dB instead of codes.\n"
    "Without actions, commands are read from stdin (type 'help').\n"
    "The default device is /dev/ttyS1.\n";

const char kHelp[] =
    "commands: get | start MAX MIN [db] | stop | reboot | update | send HEX... | quit\n";

struct Console {
  int fd = -1;
  bool rawDb = false;
  ConsoleDecoder decoder;

  void print(std::vector<ConsoleEvent> &events) {
    for (const ConsoleEvent &e : events) printf("%s\n", formatEvent(e, rawDb).c_str());
    events.clear();
  }

  bool send(const char *what, const uint8_t *bytes, size_t len) {
    if (write(fd, bytes, len) != static_cast<ssize_t>(len)) {
      fprintf(stderr, "quenvarile-host: write: %s\n", strerror(errno));
      return false;
    }
    printf("sent %s:", what);
    for (size_t i = 0; i < len; ++i) printf(" %02x", bytes[i]);
    printf("\n");
    return true;
  }

  bool command(const char *what, uint8_t group, uint8_t a, uint8_t b) {
    uint8_t frame[kCommandFrameSize];
    hostEncodeCommand(group, a, b, frame);
    return send(what, frame, sizeof frame);
  }

  bool startTest(long max, long min, bool db) {
    if (max < 0 || max > kMaxThreshold || min < 0 || min > kMaxThreshold) {
      fprintf(stderr, "quenvarile-host: thresholds must be 0..%d\n", kMaxThreshold);
      return false;
    }
    const uint8_t a = static_cast<uint8_t>(max | (db ? kRawDbBit : 0));
    const uint8_t b = static_cast<uint8_t>(min);
    // Two threshold pairs share their bytes with other commands.
    if ((a == kUpdateA && b == kUpdateB) || (a == kStopTestA && b == kStopTestB)) {
      fprintf(stderr, "quenvarile-host: thresholds %ld %ld read as the %s command; choose others\n",
              max, min, a == kUpdateA ? "update" : "stop test");
      return false;
    }
    rawDb = db;
    return command("start-test", kGroupTest, a, b);
  }

  // Reads the line until `millis` have passed (or once, for 0), printing events.
  // Returns false when the line is gone.
  bool pump(int millis) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(millis);
    std::vector<ConsoleEvent> events;
    for (;;) {
      const int left = static_cast<int>(
          std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count());
      pollfd p{fd, POLLIN, 0};
      const int ready = poll(&p, 1, left > 0 ? std::min(left, kQuietMillis) : 0);
      if (ready > 0 && !readLine(events)) return false;
      if (ready == 0) decoder.flush(events);
      print(events);
      if (left <= 0) return true;
    }
  }

  bool readLine(std::vector<ConsoleEvent> &events) {
    uint8_t buf[256];
    const ssize_t got = read(fd, buf, sizeof buf);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    if (got <= 0) {
      decoder.flush(events);
      print(events);
      fprintf(stderr, "quenvarile-host: the line closed\n");
      return false;
    }
    decoder.feed(buf, static_cast<size_t>(got), events);
    return true;
  }

  // One typed command; false on "quit".
  bool typed(const std::string &line) {
    std::istringstream in(line);
    std::string word;
    if (!(in >> word)) return true;
    if (word == "quit" || word == "exit") return false;
    if (word == "get") {
      command("get-position", kGroupSystem, kGetPositionA, kGetPositionB);
    } else if (word == "start") {
      long max = -1, min = -1;
      std::string db;
      in >> max >> min >> db;
      startTest(max, min, db == "db");
    } else if (word == "stop") {
      command("stop-test", kGroupTest, kStopTestA, kStopTestB);
    } else if (word == "reboot") {
      command("reboot", kGroupSystem, kRebootA, kRebootB);
    } else if (word == "update") {
      command("update", kGroupTest, kUpdateA, kUpdateB);
    } else if (word == "send") {
      std::string rest;
      std::getline(in, rest);
      sendHex(rest);
    } else {
      printf("%s", kHelp);
    }
    return true;
  }

  bool sendHex(const std::string &hex) {
    std::vector<uint8_t> bytes;
    std::istringstream in(hex);
    std::string token;
    while (in >> token) {
      char *end = nullptr;
      const unsigned long v = strtoul(token.c_str(), &end, 16);
      if (*end != '\0' || v > 0xFF) {
        fprintf(stderr, "quenvarile-host: not a hex byte: %s\n", token.c_str());
        return false;
      }
      bytes.push_back(static_cast<uint8_t>(v));
    }
    return !bytes.empty() && send("bytes", bytes.data(), bytes.size());
  }

  void interactive() {
    printf("%s", kHelp);
    fflush(stdout);
    std::string typedLine;
    std::vector<ConsoleEvent> events;
    for (;;) {
      pollfd p[2] = {{fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
      const int ready = poll(p, 2, kQuietMillis);
      if (ready == 0) decoder.flush(events);
      if (p[0].revents && !readLine(events)) return;
      print(events);
      if (p[1].revents) {
        char buf[256];
        const ssize_t got = read(STDIN_FILENO, buf, sizeof buf);
        if (got <= 0) return;
        typedLine.append(buf, static_cast<size_t>(got));
        size_t nl;
        while ((nl = typedLine.find('\n')) != std::string::npos) {
          const std::string line = typedLine.substr(0, nl);
          typedLine.erase(0, nl + 1);
          if (!typed(line)) return;
        }
      }
    }
  }
};

int openLine(const char *path) {
  const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) {
    fprintf(stderr, "quenvarile-host: %s: %s\n", path, strerror(errno));
    return -1;
  }
  termios t;
  if (tcgetattr(fd, &t) == 0) {  // not a tty (a FIFO, a file): used as it is
    cfmakeraw(&t);
    t.c_cflag &= ~(CSTOPB | PARENB | CRTSCTS);
    t.c_cflag |= CS8 | CLOCAL | CREAD;
    t.c_cc[VMIN] = 0;
    t.c_cc[VTIME] = 0;
    cfsetispeed(&t, B115200);
    cfsetospeed(&t, B115200);
    if (tcsetattr(fd, TCSANOW, &t) != 0) {
      fprintf(stderr, "quenvarile-host: %s: cannot set 115200 8N1 raw: %s\n", path,
              strerror(errno));
      close(fd);
      return -1;
    }
  }
  return fd;
}

bool wantArgs(int i, int count, int argc, const char *option) {
  if (i + count < argc) return true;
  fprintf(stderr, "quenvarile-host: %s needs %d argument(s)\n%s", option, count, kUsage);
  return false;
}

}  // namespace

int main(int argc, char **argv) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const char *device = "/dev/ttyS1";
  bool rawDb = false;
  std::vector<int> actions;  // argv indexes of the actions
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      printf("%s", kUsage);
      return 0;
    } else if (arg == "--device") {
      if (!wantArgs(i, 1, argc, "--device")) return 2;
      device = argv[++i];
    } else if (arg == "--raw-db") {
      rawDb = true;
    } else if (arg == "--get-position" || arg == "--stop-test" || arg == "--reboot" ||
               arg == "--update") {
      actions.push_back(i);
    } else if (arg == "--send" || arg == "--listen") {
      if (!wantArgs(i, 1, argc, arg.c_str())) return 2;
      actions.push_back(i++);
    } else if (arg == "--start-test") {
      if (!wantArgs(i, 2, argc, "--start-test")) return 2;
      actions.push_back(i);
      i += 2;
    } else {
      fprintf(stderr, "quenvarile-host: unknown option %s\n%s", arg.c_str(), kUsage);
      return 2;
    }
  }

  Console console;
  console.fd = openLine(device);
  if (console.fd < 0) return 1;
  console.rawDb = rawDb;
  if (actions.empty()) {
    console.interactive();
    return 0;
  }
  for (int i : actions) {
    const std::string arg = argv[i];
    bool ok = true;
    if (arg == "--get-position")
      ok = console.command("get-position", kGroupSystem, kGetPositionA, kGetPositionB);
    else if (arg == "--stop-test")
      ok = console.command("stop-test", kGroupTest, kStopTestA, kStopTestB);
    else if (arg == "--reboot")
      ok = console.command("reboot", kGroupSystem, kRebootA, kRebootB);
    else if (arg == "--update")
      ok = console.command("update", kGroupTest, kUpdateA, kUpdateB);
    else if (arg == "--send")
      ok = console.sendHex(argv[i + 1]);
    else if (arg == "--start-test")
      ok = console.startTest(strtol(argv[i + 1], nullptr, 10), strtol(argv[i + 2], nullptr, 10),
                             rawDb);
    else if (arg == "--listen")
      ok = console.pump(static_cast<int>(strtod(argv[i + 1], nullptr) * 1000));
    if (!ok) return 1;
    if (arg != "--listen" && !console.pump(0)) return 1;
  }
  return 0;
}
