// The real daemon as a supervisor and an operator see it: its start-up lines,
// the heartbeat in the shared state segment, and how each signal ends it or not.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <regex>

#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/eventually.h"
#include "support/sandbox.h"

namespace {

std::string abortLine(int sig) {
  return std::string("Aborted by signal ") + strsignal(sig) + "...\n";
}

class DaemonTest : public testing::Test {
 protected:
  // Starts the daemon on the sandbox's devices, fed silence, plus `env`; when
  // `running`, waits until it runs its heartbeat loop (handlers installed).
  std::unique_ptr<DaemonProcess> start(bool running = true, std::vector<std::string> env = {}) {
    env.insert(env.begin(), alsa_.environment());
    alsa_.feedSilence(3, 8);  // digital microphones
    alsa_.feedSilence(2, 2);  // line-in
    auto daemon = std::make_unique<DaemonProcess>(DaemonOptions{sandbox_.path(), env, {}});
    EXPECT_TRUE(!running || daemon->waitForOutput("velquare_audioprocess_init ok!"))
        << daemon->out() << daemon->err();
    return daemon;
  }
  uint32_t heartbeat() { return readStateSegment(sandbox_.file("root")).heartbeat; }
  // The main loop still turns: two more heartbeats from now.
  void expectAlive(DaemonProcess &daemon) {
    const uint32_t now = heartbeat();
    EXPECT_TRUE(eventually([&] { return heartbeat() > now + 1; }, 15000))
        << "heartbeat stuck at " << now;
    EXPECT_TRUE(daemon.running()) << daemon.err();
  }

  Sandbox sandbox_;
  AlsaSandbox alsa_{sandbox_};
};

// The recycle and broken-pipe signals change nothing. The first SIGINT or
// SIGTERM only puts the audio into abort mode: one line, and the process goes
// on. The other of the two is then swallowed; the same signal again ends the
// process by its default action.
class TwoStepStop : public DaemonTest, public testing::WithParamInterface<int> {};

TEST_P(TwoStepStop, OnlyTheSameStopSignalTwiceEndsTheProcess) {
  const int first = GetParam();
  auto daemon = start();
  ASSERT_TRUE(daemon->signal(SIGUSR1) && daemon->signal(SIGPIPE));
  expectAlive(*daemon);
  // Standard error carries other lines as well (the serial side, for one).
  EXPECT_EQ(countOccurrences(daemon->err(), "Aborted by signal"), 0) << daemon->err();

  ASSERT_TRUE(daemon->signal(first));
  ASSERT_TRUE(daemon->waitForError(abortLine(first))) << daemon->err();
  ASSERT_TRUE(daemon->signal(first == SIGINT ? SIGTERM : SIGINT));
  expectAlive(*daemon);
  EXPECT_EQ(countOccurrences(daemon->err(), "Aborted by signal"), 1) << daemon->err();

  ASSERT_TRUE(daemon->signal(first));
  ASSERT_TRUE(daemon->waitForExit());
  EXPECT_EQ(daemon->termSignal(), first) << daemon->exitCode();
}

INSTANTIATE_TEST_SUITE_P(Signals, TwoStepStop, testing::Values(SIGINT, SIGTERM),
                         [](const auto &info) { return info.param == SIGINT ? "Int" : "Term"; });

// Six build-time numbers, none with a leading zero; later lines come from the
// angle service too, the main thread's own line follows the banner.
TEST_F(DaemonTest, StartsUpInItsFixedOrderWithoutAWatchdogAndAbortSignalExitsWithStatusOne) {
  auto daemon = start();
  EXPECT_TRUE(std::regex_search(
      daemon->out(),
      std::regex("^-->main [0-9]+: don't create wdg proc\nVELQUARE_ORIENANGLE\n"
                 "---compile time : [1-9][0-9]{3}-([1-9]|1[0-2])-([1-9]|[12][0-9]|3[01]) "
                 "([0-9]|1[0-9]|2[0-3]):([0-9]|[1-5][0-9]):([0-9]|[1-5][0-9])\n"
                 "(.*\n)*-->main [0-9]+: velquare_audioprocess_init ok!\n")))
      << daemon->out();
  ASSERT_TRUE(daemon->signal(SIGABRT));
  ASSERT_TRUE(daemon->waitForExit());
  EXPECT_EQ(daemon->exitCode(), 1) << daemon->termSignal() << daemon->err();
  EXPECT_EQ(countOccurrences(daemon->err(), abortLine(SIGABRT)), 1) << daemon->err();
}

TEST_F(DaemonTest, EndpointFailureTearsDownAndExitsWithStatusZero) {
  // A configuration that defines no PCM at all: "hw:0,3" cannot be opened.
  sandbox_.write("alsa-empty.conf", "# no devices\n");
  auto daemon = start(false, {"ALSA_CONFIG_PATH=" + sandbox_.file("alsa-empty.conf")});
  ASSERT_TRUE(daemon->waitForExit()) << daemon->out();
  EXPECT_EQ(daemon->exitCode(), 0) << daemon->termSignal();
  const std::string out = daemon->out();
  EXPECT_TRUE(
      std::regex_search(out, std::regex("\n-->main [0-9]+: velquare_audioprocess_init err!\n")))
      << out;
  EXPECT_EQ(heartbeat(), 0u);  // the main loop never started
}

}  // namespace
