// The host link: command frames; over a pseudo-terminal the serial port
// layer and the rules by which positions go out. (The reader's pause during
// an update is shown by the whole daemon taking a file from sb; garbage,
// split reads and broken frames are the fuzz target's ground.)
#include <gmock/gmock.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <tuple>
#include <vector>

#include "edge_config.h"
#include "hostlink/host_command.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/process.h"
#include "lifecycle/state_segment.h"
#include "support/output_capture.h"
#include "support/pty_line.h"
#include "support/sandbox.h"

using testing::HasSubstr;
using K = HostCommandKind;

namespace {

Bytes positionFrame(uint8_t p) { return {0xFF, 0x00, p, 0x02, 0x01, static_cast<uint8_t>(p + 3)}; }

struct HostProtocolTest : testing::Test {
  Sandbox sandbox;
  PtyLine line;
  void SetUp() override {
    gHostCtrl = HostCtrl{};
    lastPosi = 230;
    ASSERT_EQ(velquare_shm_create(), 0);
    ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
    gHostCtrl.uartOpened = 1;
  }
};

}  // namespace

TEST(HostDecode, RecognisesCommandsAndIgnoresMalformedFrames) {
  const std::pair<Bytes, K> cases[] = {
      {{0x81, 0x01, 0x0D, 0x00, 0x01, 0xFF}, K::Reboot},
      {{0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF}, K::GetPosition},
      {{0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFF}, K::Update},
      {{0x81, 0x01, 0x0E, 0x12, 0x01, 0xFF}, K::StopTest},
      {{0x81, 0x01, 0x0E, 0x7F, 0x01, 0xFF}, K::StartTest},  // near misses of update and stop
      {{0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFE}, K::Ignored},    // bad end byte
      {{0x80, 0x01, 0x0D, 0x00, 0x02, 0xFF}, K::Ignored},    // bad start byte
      {{0x81, 0x02, 0x0D, 0x00, 0x02, 0xFF}, K::Ignored},    // bad address
      {{0x81, 0x01, 0x0C, 0x00, 0x02, 0xFF}, K::Ignored},    // unknown group
      {{0x81, 0x01, 0x0D, 0x00, 0x03, 0xFF}, K::Ignored},    // unknown system command
  };
  for (const auto &[frame, kind] : cases) {
    const HostCommand got = hostDecodeFrame(frame.data());
    EXPECT_EQ(std::make_tuple(got.kind, got.a, got.b), std::make_tuple(kind, frame[3], frame[4]));
  }
}

// The command thread's reader over a scripted line: each entry is what has
// arrived when the reader next looks (an empty one: nothing yet), taken at most
// as many bytes as a receive asks for; the run word drops once the script is
// used up, or after half a second.
namespace reader {
std::vector<Bytes> script;
size_t next = 0;
int32_t run = 1;
std::vector<K> seen;
int recv(uint8_t *buf, int len) {
  if (next == script.size()) return sharedStore(run, 0), 0;
  Bytes &chunk = script[next];
  const size_t n = std::min(chunk.size(), static_cast<size_t>(len));
  std::copy(chunk.begin(), chunk.begin() + n, buf);
  chunk.erase(chunk.begin(), chunk.begin() + n);
  next += chunk.empty();
  return static_cast<int>(n);
}
void execute(const HostCommand &c) { seen.push_back(c.kind); }
}  // namespace reader

TEST(HostReader, ResynchronisesOnTheStartByteAndWaitsOnlyWhileTheLineIsItsOwn) {
  const struct {
    int opened, updating;
    std::vector<Bytes> script;
    std::vector<K> want;
  } cases[] = {
      {1, 0, {{0x00}, {0xFF}, {0x81}, {0x01, 0x0D}, {}, {0x00, 0x02, 0xFF}}, {K::GetPosition}},
      {1, 0, {{0x81}, {0x01, 0x0D, 0x00, 0x01, 0xFF}, {0x81}, {0x01, 0x0E}}, {K::Reboot}},
      {1, 0, {{0x81, 0x01, 0x0D, 0x00, 0x01, 0xFF}}, {K::Reboot}},            // all at once
      {1, 0, {{0x81}, {0x01}, {0x0D}, {0x00}, {0x01}, {0xFF}}, {K::Reboot}},  // byte by byte
      {0, 0, {{0x81}, {0x01, 0x0D, 0x00, 0x01, 0xFF}}, {}},
      {1, 1, {{0x81}, {0x01, 0x0D, 0x00, 0x01, 0xFF}}, {}},
  };
  for (const auto &c : cases) {
    gHostCtrl = HostCtrl{};
    gHostCtrl.uartOpened = c.opened, gHostCtrl.isUpdating = c.updating;
    reader::script = c.script, reader::next = 0, reader::run = 1, reader::seen.clear();
    std::thread stop([] { usleep(500000), sharedStore(reader::run, 0); });
    hostCommandLoop(reader::recv, reader::execute, reader::run);
    stop.join();
    EXPECT_EQ(reader::seen, c.want) << c.opened << c.updating;
  }
}

TEST(HostThresholds, FollowSwapAndDefaultRules) {
  // A, B; the report mode and the upper and lower thresholds taken.
  const std::tuple<uint8_t, uint8_t, int32_t, uint32_t, uint32_t> cases[] = {
      {0x12, 0x05, 0, 18, 5},     // plain
      {0x00, 0x00, 0, 95, 90},    // both defaulted
      {0x85, 0x1E, 1, 30, 5},     // raw dB, swapped
      {0x32, 0x00, 0, 50, 90},    // lower default lands above the upper
      {0x00, 0x05, 0, 5, 90},     // swap brings a zero lower threshold
      {0xFF, 0xFF, 1, 127, 127},  // bit 7 of B is dropped
  };
  for (const auto &[a, b, retMode, max, min] : cases) {
    const TestThresholds t = hostTestThresholds(a, b);
    EXPECT_EQ(std::make_tuple(t.sendRetMode, t.micDBmax, t.micDBmin),
              std::make_tuple(retMode, max, min))
        << std::hex << int(a) << " " << int(b);
  }
}

// Each row: the second of running time, test mode, update running, a get
// position request before, the position reported, and what goes out.
TEST_F(HostProtocolTest, PositionsGoOutOnChangeOrRequestAndOncePerSecondInTheFirstMinute) {
  const struct {
    uint32_t second;
    int32_t testMode, updating, asked;
    uint32_t position;
    Bytes sent;
  } steps[] = {
      {3, 1, 0, 0, 12, {}},                                     // nothing in test mode
      {4, 0, 1, 0, 12, {}},                                     // nor during an update,
      {4, 0, 0, 0, 230, {}},                                    // yet the repeat clock moved
      {5, 0, 0, 0, 230, positionFrame(230)},                    // unchanged, but second 5 is due
      {5, 0, 0, 0, 230, {}},                                    // once a second
      {6, 0, 0, 0, 40, positionFrame(40) + positionFrame(40)},  // the change, then the repeat
      {59, 0, 0, 0, 40, positionFrame(40)},
      {60, 0, 0, 0, 40, {}},  // after the first minute only changes go out
      {62, 0, 0, 0, 0xFE, {0xFF, 0x00, 0xFE, 0x02, 0x01, 0x01}},  // the checksum wraps
      {63, 0, 0, 1, 0xFE, positionFrame(0xFE)},                   // asked for: sent unchanged,
      {64, 0, 0, 0, 0xFE, {}},                                    // once
      {65, 0, 0, 0, 300, positionFrame(44)},                      // only the low byte goes out
  };
  for (const auto &s : steps) {
    runSeconds = s.second;
    std::tie(gHostCtrl.testMode, gHostCtrl.isUpdating) = std::make_tuple(s.testMode, s.updating);
    if (s.asked) stdoutOf([] { hostExecuteCommand({K::GetPosition, 0x00, 0x02}); });
    stdoutOf([&] { onAngleResult(s.position); });
    EXPECT_EQ(line.receiveAll(), s.sent) << "second " << s.second << ", position " << s.position;
    EXPECT_EQ(velquare_shm_get()->position, s.position & 0xFF);  // mirrored, sent or not
  }
}

TEST_F(HostProtocolTest, UartOpensTheLineRaw8N1AndNonBlocking) {
  termios t{};
  ASSERT_EQ(tcgetattr(uartFd, &t), 0);  // the terminal's settings, whoever asks
  EXPECT_TRUE(cfgetospeed(&t) == B115200 && cfgetispeed(&t) == B115200);
  EXPECT_EQ(t.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8));
  EXPECT_EQ(
      (t.c_lflag & (ICANON | ECHO | ISIG)) | (t.c_iflag & (ICRNL | IXON)) | (t.c_oflag & OPOST),
      0u);
  uint8_t byte;
  EXPECT_EQ(uartRecv(&byte, 1), -1);  // nothing came: a poll, not a wait
}

template <class F>
std::chrono::milliseconds timeOf(F f) {
  const auto start = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

// A get-position pauses 100 ms only while the line is closed. A wait on a closed
// line, or on a descriptor closed under it (select refuses it), lasts its time-out
// and no longer.
TEST_F(HostProtocolTest, PausesOnAClosedLineLastTheirWholeTime) {
  // The quickest of three runs: a loaded machine may stall any one of them.
  for (int opened : {1, 0}) {
    gHostCtrl.uartOpened = opened;
    auto took = std::chrono::milliseconds::max();
    for (int run = 0; run < 3; ++run)
      took = std::min(took, timeOf([] {
                        stdoutOf([] { hostExecuteCommand({K::GetPosition, 0, 2}); });
                      }));
    EXPECT_EQ(took.count() >= 100, opened == 0) << took.count();
  }
  int closed[2];
  ASSERT_EQ(pipe(closed), 0);
  close(closed[1]), close(closed[0]), uartClose();
  for (int fd : {-1, closed[0]}) {
    uartFd = fd;
    const auto took = timeOf([] { EXPECT_TRUE(uartWaitReadable(1000)); }).count();
    EXPECT_TRUE(took >= 1000 && took < 2000) << fd << ": " << took;
  }
}

// With the device missing the open fails loudly and the position stays
// unsent; a later callback opens the line and sends it.
TEST_F(HostProtocolTest, ClosedLineIsOpenedByTheCallbackAndKeepsAPendingChange) {
  runSeconds = 100;
  uartClose();
  uartFd = 7;  // whatever it was before, a failed open stores -1
  gHostCtrl.uartOpened = 0;
  unlink(QV_SERIAL_DEVICE);
  const std::string err = stderrOf(
      [] { EXPECT_THAT(stdoutOf([] { onAngleResult(70); }), HasSubstr("uart open err.\n")); });
  EXPECT_THAT(err, testing::AllOf(HasSubstr("Can't Open Serial Port"), HasSubstr("SetupSerial 1")));
  EXPECT_EQ(std::make_tuple(uartFd, gHostCtrl.uartOpened, lastPosi),
            std::make_tuple(-1, 0, uint8_t{230}));
  ASSERT_EQ(symlink(line.slavePath().c_str(), QV_SERIAL_DEVICE), 0);
  stdoutOf([] { onAngleResult(70); });
  EXPECT_EQ(gHostCtrl.uartOpened, 1);
  EXPECT_EQ(line.receiveAll(), positionFrame(70));
}

// The host link's console lines, once, exactly: operators and log readers
// depend on them. (The behaviour behind each is tested above.)
TEST_F(HostProtocolTest, LogLinesAsTheOperatorsKnowThem) {
  runSeconds = 100;
  const std::pair<HostCommand, const char *> cases[] = {
      {{K::StartTest, 0x85, 0x1E},
       "-->velquare_uart_proc 1616: start test mode..\n"
       "-->velquare_uart_proc 1633: sendRetMode:1, micDBmax:30, micDBmin:5\n"},
      {{K::Update, 0x7F, 0x00}, ""},  // refused in test mode
      {{K::StopTest, 0x12, 0x01}, "-->velquare_uart_proc 1610: stop test mode..\n"},
      {{K::GetPosition, 0x00, 0x02},
       "-->velquare_uart_proc 1649: recv get posi cmd and send posi..\n"},
      {{K::Reboot, 0x00, 0x01}, "-->velquare_uart_proc 1640: recv reboot cmd and reboot..\n"},
  };
  for (const auto &c : cases) EXPECT_EQ(stdoutOf([&] { hostExecuteCommand(c.first); }), c.second);
  EXPECT_EQ(sandbox.read("commands.log"), "sync\nreboot\n");  // sync first, then reboot
  // The level meter reads the thresholds of the last start, kept after the stop.
  EXPECT_EQ(std::make_tuple(gHostCtrl.sendRetMode, gHostCtrl.micDBmax, gHostCtrl.micDBmin),
            std::make_tuple(1, 30u, 5u));
  EXPECT_EQ(stdoutOf([] { onAngleResult(37); }),
            "----------------------------> posi : 37\nsend data is :\nff 00 25 02 01 28 \n");
}
