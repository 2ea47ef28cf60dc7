// The update as a new user runs it, on a line paced like the board's 115200-baud
// UART: the host's update command, then Debian's `sb --ymodem`, against the
// whole sandbox daemon. On this clean line every run installs exactly the file sent.
#include <gtest/gtest.h>

#include "pty_line.h"
#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/eventually.h"
#include "support/paced_line.h"

// The parameter: the payload's size, that many bytes of a stripped daemon.
struct PacedUpdate : testing::TestWithParam<size_t> {};

TEST_P(PacedUpdate, SbInstallsExactlyTheFileSent) {
  Sandbox box;
  AlsaSandbox alsa(box);
  // In real time, as on the board, so the daemon does not spin on its input.
  alsa.feedSilence(3, 8);
  alsa.feedSilence(2, 2);
  const std::string daemonImage = readFile(QV_STRIPPED_DAEMON);
  ASSERT_GT(daemonImage.size(), 1000u);
  // At most 100 KB: a sanitizer build's daemon is ten times the board's.
  const std::string payload = daemonImage.substr(0, std::min<size_t>(GetParam(), 100 * 1024));
  box.write("root/quenvarile", "the running daemon's executable");
  box.write("quenvarile_ota", payload);

  PtyLine line;
  DaemonProcess daemon({box.path(), {alsa.environment(), "QV_SANDBOX_UPDATE_WAIT_SECONDS=1"}, {}});
  // The first report out means the line is open, configured and flushed: a
  // command sent before that flush would be discarded with it.
  ASSERT_TRUE(daemon.waitForOutput("send data is")) << daemon.out();
  line.send({0x81, 0x01, 0x0e, 0x7f, 0x00, 0xff});  // update
  ASSERT_TRUE(daemon.waitForOutput("wait 10s for ymodem...")) << daemon.out();
  EXPECT_EQ(runPacedSb(line.hostFd(), kUartBytesPerSecond, {"--ymodem", "quenvarile_ota"}, 180000),
            0)
      << box.read("sb.log");
  EXPECT_NE(line.receiveUntil("ymodem updata ok", 30000).find("ymodem updata ok"),
            std::string::npos)
      << daemon.out();
  EXPECT_TRUE(box.read("root/quenvarile") == payload)
      << box.read("root/quenvarile").size() << " bytes installed";
  // Back in service: the flags are cleared when the (sandbox's) reboot returns.
  EXPECT_TRUE(eventually([&] { return readStateSegment(box.file("root")).updating == 0; }, 5000));
}

// The whole stripped daemon (sent three times), and two short files.
INSTANTIATE_TEST_SUITE_P(Payloads, PacedUpdate,
                         testing::Values(SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 2, 300, 8192));
