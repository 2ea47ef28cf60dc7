// The update as a new user runs it, on a line paced like the board's 115200-baud
// UART: the host's update command, then Debian's `sb --ymodem`, against the
// whole sandbox daemon. Every run must install exactly the file sent or leave
// the old executable; on this clean line every run installs. Each run prints
// its outcome, so repeated runs (--gtest_repeat) give a tally.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "pty_line.h"
#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/paced_line.h"
#include "support/sandbox.h"

namespace {

std::string strippedDaemon() {
  std::ifstream in(QV_STRIPPED_DAEMON, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

struct PacedUpdate : testing::TestWithParam<size_t> {};  // payload: that many bytes of a stripped daemon

}  // namespace

TEST_P(PacedUpdate, SbInstallsExactlyTheFileSent) {
  Sandbox box;
  AlsaSandbox alsa(box);
  alsa.feedSilence(3, 8);  // in real time, as on the board, so the daemon does not spin on its input
  alsa.feedSilence(2, 2);
  const std::string daemonImage = strippedDaemon();
  ASSERT_GT(daemonImage.size(), 1000u);
  // At most 100 KB: a sanitizer build's daemon is ten times the board's.
  const std::string payload = daemonImage.substr(0, std::min<size_t>(GetParam(), 100 * 1024));
  const std::string old = "the running daemon's executable";
  box.write("root/quenvarile", old);
  box.write("quenvarile_ota", payload);

  PacedLine line(kUartBytesPerSecond);
  DaemonProcess daemon({box.path(), {alsa.environment(), "QV_SANDBOX_UPDATE_WAIT_SECONDS=1"}, {}});
  ASSERT_TRUE(daemon.waitForOutput("fd->open=")) << daemon.describeEnd() << daemon.out();
  line.send(std::string("\x81\x01\x0e\x7f\x00\xff", 6));  // update
  ASSERT_TRUE(daemon.waitForOutput("wait 10s for ymodem...")) << daemon.out();
  const int sb = line.runSb({"--ymodem", "quenvarile_ota"}, 180000);
  const std::string reply = line.receiveUntil("ymodem updata ok", 30000);
  const std::string installed = box.read("root/quenvarile");
  const bool ok = reply.find("ymodem updata ok") != std::string::npos;
  const char *what = installed == payload ? "exact" : installed == old ? "old" : "WRONG";
  printf("paced update of %zu bytes: sb %d, answer %s, installed %s (%zu bytes)\n", payload.size(), sb,
         ok ? "ok" : reply.find("ymodem updata err") != std::string::npos ? "err" : "none", what, installed.size());
  EXPECT_TRUE(ok ? installed == payload : installed == old) << what;
  EXPECT_TRUE(ok && sb == 0) << box.read("sb.log") << daemon.out();
  // Back in service: the flags are cleared when the (sandbox's) reboot returns.
  EXPECT_TRUE(eventually([&] { return readStateSegment(box.file("root")).updating == 0; }, 5000));
}

// The whole stripped daemon (sent three times), and two short files.
INSTANTIATE_TEST_SUITE_P(Payloads, PacedUpdate, testing::Values(SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 2, 300, 8192));
