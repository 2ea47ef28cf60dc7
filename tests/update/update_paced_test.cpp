// The update as a new user runs it, on a line paced like the board's 115200-baud
// UART: the host's update command, then Debian's `sb --ymodem`, against the
// whole sandbox daemon. On this clean line every run installs exactly the file sent.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <thread>

#include "common/shared_word.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/state_segment.h"
#include "paced_line.h"
#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/eventually.h"
#include "support/pty_line.h"
#include "update/update_install.h"
#include "update/ymodem.h"
#include "update/ymodem_protocol.h"

// The parameter: the payload's size, that many bytes of a stripped daemon.
struct PacedUpdate : testing::TestWithParam<size_t> {};

// A pause this long inside a block makes the receiver hand the block on short.
constexpr int kRelayStallMs = 40;

TEST_P(PacedUpdate, SbInstallsExactlyTheFileSent) {
  const std::string daemonImage = readFile(QV_STRIPPED_DAEMON);
  ASSERT_GT(daemonImage.size(), 1000u);
  // At most 100 KB: a sanitizer build's daemon is ten times the board's.
  const std::string payload = daemonImage.substr(0, std::min<size_t>(GetParam(), 100 * 1024));
  // A run in which the relay itself was kept from running (a loaded machine)
  // did not test a UART's line: it counts only when it succeeded, and is
  // otherwise run again, twice at most.
  for (int attempt = 1;; ++attempt) {
    Sandbox box;
    AlsaSandbox alsa(box);
    // In real time, as on the board, so the daemon does not spin on its input.
    alsa.feedSilence(3, 8);
    alsa.feedSilence(2, 2);
    box.write("root/quenvarile", "the running daemon's executable");
    box.write("quenvarile_ota", payload);

    PtyLine line;
    DaemonProcess daemon(
        {box.path(), {alsa.environment(), "QV_SANDBOX_UPDATE_WAIT_SECONDS=1"}, {}});
    // The first report out means the line is open, configured and flushed: a
    // command sent before that flush would be discarded with it.
    ASSERT_TRUE(daemon.waitForOutput("send data is")) << daemon.out();
    line.send({0x81, 0x01, 0x0e, 0x7f, 0x00, 0xff});  // update
    ASSERT_TRUE(daemon.waitForOutput("wait 10s for ymodem...")) << daemon.out();
    int stalledMs = 0;
    const int sb = runPacedSb(line.hostFd(), kUartBytesPerSecond, {"--ymodem", "quenvarile_ota"},
                              180000, {}, {}, &stalledMs);
    const bool answered =
        line.receiveUntil("ymodem updata ok", 30000).find("ymodem updata ok") != std::string::npos;
    const bool installed = box.read("root/quenvarile") == payload;
    if (!(sb == 0 && answered && installed) && stalledMs >= kRelayStallMs && attempt < 3) {
      printf("attempt %d: the relay stalled %d ms inside the transfer; again\n", attempt,
             stalledMs);
      continue;
    }
    EXPECT_EQ(sb, 0) << box.read("sb.log");
    EXPECT_TRUE(answered) << daemon.out();
    EXPECT_TRUE(installed) << box.read("root/quenvarile").size() << " bytes installed";
    // Back in service: the flags are cleared when the (sandbox's) reboot returns.
    EXPECT_TRUE(eventually([&] { return readStateSegment(box.file("root")).updating == 0; }, 5000));
    return;
  }
}

// The whole stripped daemon (sent three times), and two short files.
INSTANTIATE_TEST_SUITE_P(Payloads, PacedUpdate,
                         testing::Values(SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 2, 300, 8192));

// Line noise: in each run one fault at a random place of what sb sends (a
// byte dropped or inserted, a bit flipped, a whole block sent twice), against
// the receiver on the paced line. Every run installs exactly the file sent:
// sb sends each block twice, and the receiver finds the intact copy even when
// it follows a damaged one at once. Only a run whose relay was kept from
// running (see PacedUpdate) may instead end with the old executable left and
// "ymodem updata err"; none may install anything else. The counts are printed.
enum Fault { kDropped, kInserted, kFlipped, kBlockTwice };
struct LineNoise : testing::TestWithParam<Fault> {};

TEST_P(LineNoise, EveryRunInstallsExactlyTheFileSent) {
  constexpr int kRuns = 8;
  const std::string payload = readFile("/proc/self/exe").substr(0, 3000), old = "old daemon";
  std::mt19937 random(1234 + GetParam());  // the same places in every run of the suite
  int completed = 0, refused = 0, stalled = 0;
  for (int run = 0; run < kRuns; ++run) {
    Sandbox box;
    box.write("root/quenvarile", old);
    box.write("quenvarile_ota", payload);
    ASSERT_EQ(velquare_shm_create(), 0);
    PtyLine line;
    uartFd = open(line.slavePath().c_str(), O_RDWR | O_NOCTTY);
    // About 2 x 25 blocks of 133 bytes: sb sends each block twice.
    const size_t at = std::uniform_int_distribution<size_t>(0, 6000)(random);
    const uint8_t value = static_cast<uint8_t>(random());
    bool done = false;
    const LineTamper tamper = [&](std::string *b, size_t before) {
      if (done || before + b->size() <= at) return;
      const size_t i = at > before ? at - before : 0;
      if (GetParam() == kDropped) b->erase(i, 1);
      if (GetParam() == kInserted) b->insert(i, 1, static_cast<char>(value));
      if (GetParam() == kFlipped) (*b)[i] = static_cast<char>((*b)[i] ^ (1 << (value % 8)));
      if (GetParam() == kBlockTwice) {
        size_t j = i;
        while (j + kYmodemBlockBytes <= b->size() &&
               ((*b)[j] != kYmodemSoh || uint8_t((*b)[j + 1] ^ (*b)[j + 2]) != 0xFF))
          ++j;
        if (j + kYmodemBlockBytes > b->size()) return;  // on the next read
        b->insert(j + kYmodemBlockBytes, b->substr(j, kYmodemBlockBytes));
      }
      done = true;
    };
    setenv("QV_SANDBOX_UPDATE_WAIT_SECONDS", "1", 1);
    // Started by another thread after sb, so that sb is there for the first 'C'.
    bool started = false;
    std::thread starter([&] {
      velquare_ymodem_update_start();
      __atomic_store_n(&started, true, __ATOMIC_RELEASE);
    });
    const auto ended = [&] {
      return __atomic_load_n(&started, __ATOMIC_ACQUIRE) &&
             velquare_ymodem_threads_running() == 0 && sharedLoad(gHostCtrl.isUpdating) == 0;
    };
    // sb may go on after a refusal: it is stopped once the receiver has answered.
    int stalledMs = 0;
    runPacedSb(line.hostFd(), kUartBytesPerSecond, {"--ymodem", "quenvarile_ota"}, 30000, tamper,
               ended, &stalledMs);
    starter.join();
    ASSERT_TRUE(eventually(ended, 15000));
    const Bytes answer = line.receiveAll();
    const bool ok =
        std::string(answer.begin(), answer.end()).find("ymodem updata ok") != std::string::npos;
    close(uartFd);
    uartFd = -1;
    EXPECT_TRUE(done) << "run " << run << ": no fault at " << at;
    EXPECT_TRUE(box.read("root/quenvarile") == (ok ? payload : old))
        << "run " << run << ": fault at " << at << "; " << box.read("sb.log");
    EXPECT_TRUE(ok || stalledMs >= kRelayStallMs) << "run " << run << ": fault at " << at;
    (ok ? completed : refused) += 1;
    stalled += stalledMs >= kRelayStallMs;
  }
  printf("line noise %d: %d of %d runs completed exactly, %d refused; the relay stalled in %d\n",
         int(GetParam()), completed, kRuns, refused, stalled);
  RecordProperty("completed", completed);
  RecordProperty("refused", refused);
}

INSTANTIATE_TEST_SUITE_P(Faults, LineNoise,
                         testing::Values(kDropped, kInserted, kFlipped, kBlockTwice));
