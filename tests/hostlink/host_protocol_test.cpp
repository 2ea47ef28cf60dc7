// The host protocol over a pseudo-terminal: commands from the host, and the
// rules by which positions go out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "common/shared_word.h"
#include "edge_config.h"
#include "hostlink/host_command.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/process.h"
#include "lifecycle/state_segment.h"
#include "pty_line.h"
#include "support/output_capture.h"
#include "support/sandbox.h"

namespace {

Bytes positionFrame(uint8_t p) { return {0xFF, 0x00, p, 0x02, 0x01, static_cast<uint8_t>(p + 3)}; }
Bytes command(uint8_t group, uint8_t a, uint8_t b) { return {0x81, 0x01, group, a, b, 0xFF}; }

struct HostProtocolTest : testing::Test {
  Sandbox sandbox;
  PtyLine line;
  void SetUp() override {
    gHostCtrl = HostCtrl{};
    lastPosi = 230;
    runSeconds = 100;  // after the first minute
    ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
    gHostCtrl.uartOpened = 1;
  }
  void TearDown() override {
    if (uartFd >= 0) uartClose();
  }
};

// The command loop on the real line, stopped and joined at the end.
struct CommandReader {
  int32_t run = 1;
  std::thread thread{[this] { hostCommandLoop(uartRecv, hostExecuteCommand, run); }};
  ~CommandReader() {
    sharedStore(run, 0);
    thread.join();
  }
};

template <class T>
bool becomes(const T &word, T value) {
  return eventually([&] { return sharedLoad(word) == value; });
}

}  // namespace

TEST_F(HostProtocolTest, ChangedPositionsGoOutWithCodeAndChecksumAndAreMirrored) {
  ASSERT_EQ(velquare_shm_create(), 0);
  onAngleResult(37);
  EXPECT_EQ(line.receiveAll(), (Bytes{0xFF, 0x00, 0x25, 0x02, 0x01, 0x28}));
  EXPECT_EQ(lastPosi, 37);
  onAngleResult(0xFE);  // the checksum wraps: 0xFE + 2 + 1
  EXPECT_EQ(line.receiveAll(), (Bytes{0xFF, 0x00, 0xFE, 0x02, 0x01, 0x01}));
  // After the first minute only changes go out.
  onAngleResult(0xFE);
  onAngleResult(90);
  EXPECT_EQ(line.receiveAll(), positionFrame(90));
  onAngleResult(300);  // only the low byte is stored and sent
  EXPECT_EQ(velquare_shm_get()->position, 44);
  EXPECT_EQ(line.receiveAll(), positionFrame(44));
}

TEST_F(HostProtocolTest, GetPositionIsAnsweredEvenWhenThePositionDidNotChange) {
  CommandReader reader;
  onAngleResult(230);
  EXPECT_TRUE(line.receiveAll().empty());
  line.send(command(0x0D, 0x00, 0x02));
  ASSERT_TRUE(becomes(gHostCtrl.posiRequested, 1));
  onAngleResult(230);
  EXPECT_EQ(line.receiveAll(), positionFrame(230));
  EXPECT_EQ(gHostCtrl.posiRequested, 0);
  onAngleResult(230);  // the request is answered once
  EXPECT_TRUE(line.receiveAll().empty());
}

TEST_F(HostProtocolTest, FirstMinuteRepeatsTheLastPositionOncePerSecondUnlessSilenced) {
  ASSERT_EQ(velquare_shm_create(), 0);
  runSeconds = 3;
  for (int32_t HostCtrl::*flag : {&HostCtrl::testMode, &HostCtrl::isUpdating}) {
    gHostCtrl.*flag = 1;  // nothing is sent in test mode or during an update
    onAngleResult(12);
    gHostCtrl.*flag = 0;
    ++runSeconds;
  }
  EXPECT_TRUE(line.receiveAll().empty());
  EXPECT_EQ(lastPosi, 230);
  EXPECT_EQ(velquare_shm_get()->position, 12);  // mirrored all the same
  EXPECT_EQ(gHostCtrl.lastResendSecond, 4u);  // the repeat clock still moved

  onAngleResult(230);  // unchanged, but second 5 is due
  onAngleResult(230);  // same second: nothing
  EXPECT_EQ(line.receiveAll(), positionFrame(230));
  runSeconds = 6;
  onAngleResult(40);  // a change, then the repeat of the new position
  EXPECT_EQ(line.receiveAll(), positionFrame(40) + positionFrame(40));
  runSeconds = 59;
  onAngleResult(40);
  EXPECT_EQ(line.receiveAll(), positionFrame(40));
  runSeconds = 60;
  onAngleResult(40);
  EXPECT_TRUE(line.receiveAll().empty());
}

TEST_F(HostProtocolTest, ClosedLineIsOpenedByTheCallbackAndKeepsAPendingChange) {
  uartClose();
  gHostCtrl.uartOpened = 0;
  unlink(QV_SERIAL_DEVICE);  // the open fails: the position stays unsent
  onAngleResult(70);
  EXPECT_EQ(lastPosi, 230);
  EXPECT_EQ(gHostCtrl.uartOpened, 0);

  ASSERT_EQ(symlink(line.slavePath().c_str(), QV_SERIAL_DEVICE), 0);
  onAngleResult(70);
  EXPECT_EQ(gHostCtrl.uartOpened, 1);
  EXPECT_EQ(line.receiveAll(), positionFrame(70));
}

TEST_F(HostProtocolTest, LineCommandsSwitchTestModeAndSetThresholds) {
  CommandReader reader;
  line.send(Bytes{0x00, 0x55} + command(0x0E, 0x12, 0x05));  // garbage first
  ASSERT_TRUE(becomes(gHostCtrl.testMode, 1));
  EXPECT_EQ(gHostCtrl.micDBmax, 18u);
  EXPECT_EQ(gHostCtrl.micDBmin, 5u);
  EXPECT_EQ(gHostCtrl.sendRetMode, 0);

  // An update is refused in test mode; a stop with a bad end byte is
  // ignored; the start after them replaces the thresholds.
  line.send(command(0x0E, 0x7F, 0x00) + Bytes{0x81, 0x01, 0x0E, 0x12, 0x01, 0xFE} + command(0x0E, 0x85, 0x1E));
  ASSERT_TRUE(becomes(gHostCtrl.micDBmax, 30u));
  EXPECT_EQ(gHostCtrl.micDBmin, 5u);
  EXPECT_EQ(gHostCtrl.sendRetMode, 1);
  EXPECT_EQ(gHostCtrl.testMode, 1);
  EXPECT_EQ(gHostCtrl.isUpdating, 0);

  line.send(command(0x0E, 0x00, 0x00));
  ASSERT_TRUE(becomes(gHostCtrl.micDBmax, 95u));
  EXPECT_EQ(gHostCtrl.micDBmin, 90u);
  line.send(command(0x0E, 0x12, 0x01));
  ASSERT_TRUE(becomes(gHostCtrl.testMode, 0));
}

// The real command thread, in a child process of its own (it never ends):
// garbage, then a reboot frame, reaches the sandbox's reboot command.
TEST_F(HostProtocolTest, CommandThreadRebootsOnTheHostsCommand) {
  fflush(stdout);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    pthread_t thread;
    pthread_create(&thread, nullptr, velquare_uart_proc, nullptr);
    sleep(20);
    _exit(0);
  }
  line.send(Bytes{0x81, 0x01, 0x0D, 0x00, 0x01, 0xFE, 0x13} + command(0x0D, 0x00, 0x01));
  const bool rebooted = eventually([&] { return sandbox.read("commands.log") == "sync\nreboot\n"; }, 5000);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(rebooted) << sandbox.read("commands.log");  // sync first, then reboot
}

// The host link's console lines, once, exactly: operators and log readers
// depend on them. (The behaviour behind each is tested above.)
TEST_F(HostProtocolTest, LogLinesAsTheOperatorsKnowThem) {
  const uint8_t bytes[] = {0x81, 0x0d};
  const struct {
    const char *what;
    std::function<void()> act;
    const char *line;
  } cases[] = {
      {"start test", [] { hostExecuteCommand({HostCommandKind::StartTest, 0x12, 0x05}); },
       "-->velquare_uart_proc 1616: start test mode..\n"
       "-->velquare_uart_proc 1633: sendRetMode:0, micDBmax:18, micDBmin:5\n"},
      {"update in test mode", [] { hostExecuteCommand({HostCommandKind::Update, 0x7F, 0x00}); }, ""},
      {"stop test", [] { hostExecuteCommand({HostCommandKind::StopTest, 0x12, 0x01}); },
       "-->velquare_uart_proc 1610: stop test mode..\n"},
      {"get position", [] { hostExecuteCommand({HostCommandKind::GetPosition, 0x00, 0x02}); },
       "-->velquare_uart_proc 1649: recv get posi cmd and send posi..\n"},
      {"reboot", [] { hostExecuteCommand({HostCommandKind::Reboot, 0x00, 0x01}); },
       "-->velquare_uart_proc 1640: recv reboot cmd and reboot..\n"},
      {"position", [] { onAngleResult(37); },
       "----------------------------> posi : 37\nsend data is :\nff 00 25 02 01 28 \n"},
      {"send", [&] { uartSend(bytes, 2); }, "send data is :\n81 0d \n"},
  };
  for (const auto &c : cases) EXPECT_EQ(stdoutOf(c.act), c.line) << c.what;
  EXPECT_EQ(sandbox.read("commands.log"), "sync\nreboot\n");  // sync first, then reboot
}
