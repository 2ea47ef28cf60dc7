// The real daemon as a supervisor and an operator see it: its start-up lines,
// the heartbeat in the shared state segment, and how each signal ends it or not.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <regex>
#include <thread>

#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/sandbox.h"

namespace {

std::string abortLine(int sig) { return std::string("Aborted by signal ") + strsignal(sig) + "...\n"; }
// Standard error carries other lines as well (the serial side, for one).
int abortLines(const DaemonProcess &daemon) { return countOccurrences(daemon.err(), "Aborted by signal"); }

class DaemonTest : public testing::Test {
 protected:
  // Starts the daemon on the sandbox's devices, fed silence, plus `env`.
  std::unique_ptr<DaemonProcess> start(std::vector<std::string> env = {}) {
    DaemonOptions options;
    options.workDir = sandbox_.path();
    options.env = {alsa_.environment()};
    options.env.insert(options.env.end(), env.begin(), env.end());
    alsa_.feedSilence(3, 8);  // digital microphones
    alsa_.feedSilence(2, 2);  // line-in
    auto daemon = std::make_unique<DaemonProcess>(options);
    EXPECT_TRUE(daemon->started());
    return daemon;
  }
  // ... and waits until it runs its heartbeat loop (handlers installed).
  std::unique_ptr<DaemonProcess> startRunning() {
    auto daemon = start();
    EXPECT_TRUE(daemon->waitForOutput("velquare_audioprocess_init ok!")) << daemon->describeEnd() << "\n"
                                                                        << daemon->out() << daemon->err();
    return daemon;
  }
  uint32_t heartbeat() { return readStateSegment(sandbox_.file("root")).heartbeat; }
  bool heartbeatPasses(uint32_t value) {
    for (int i = 0; i < 300 && heartbeat() <= value; i++) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return heartbeat() > value;
  }
  // The main loop still turns: two more heartbeats from now.
  void expectAlive(DaemonProcess &daemon) {
    uint32_t now = heartbeat();
    EXPECT_TRUE(heartbeatPasses(now + 1)) << "heartbeat stuck at " << now;
    EXPECT_TRUE(daemon.running()) << daemon.describeEnd();
  }

  Sandbox sandbox_;
  AlsaSandbox alsa_{sandbox_};
};

TEST_F(DaemonTest, StartsUpInItsFixedOrderWithoutAWatchdogDevice) {
  auto daemon = startRunning();
  // Six build-time numbers, none with a leading zero; later lines come from the
  // angle service too, the main thread's own line follows the banner.
  EXPECT_TRUE(std::regex_search(
      daemon->out(),
      std::regex("^-->main [0-9]+: don't create wdg proc\nVELQUARE_ORIENANGLE\n"
                 "---compile time : [1-9][0-9]{3}-([1-9]|1[0-2])-([1-9]|[12][0-9]|3[01]) "
                 "([0-9]|1[0-9]|2[0-3]):([0-9]|[1-5][0-9]):([0-9]|[1-5][0-9])\n"
                 "(.*\n)*-->main [0-9]+: velquare_audioprocess_init ok!\n")))
      << daemon->out();
}

// The first SIGINT or SIGTERM only puts the audio into abort mode: one line,
// and the process goes on. The other of the two is then swallowed; the same
// signal again ends the process by its default action.
class TwoStepStop : public DaemonTest, public testing::WithParamInterface<int> {};

TEST_P(TwoStepStop, FirstSignalReportsOnceSecondEndsTheProcess) {
  const int first = GetParam();
  const int other = first == SIGINT ? SIGTERM : SIGINT;
  auto daemon = startRunning();

  ASSERT_TRUE(daemon->signal(first));
  ASSERT_TRUE(daemon->waitForError(abortLine(first))) << daemon->err();
  expectAlive(*daemon);

  ASSERT_TRUE(daemon->signal(other));
  expectAlive(*daemon);
  EXPECT_EQ(abortLines(*daemon), 1) << daemon->err();

  ASSERT_TRUE(daemon->signal(first));
  ASSERT_TRUE(daemon->waitForExit());
  EXPECT_EQ(daemon->termSignal(), first) << daemon->describeEnd();
}

INSTANTIATE_TEST_SUITE_P(Signals, TwoStepStop, testing::Values(SIGINT, SIGTERM),
                         [](const testing::TestParamInfo<int> &info) { return std::string(info.param == SIGINT ? "Int" : "Term"); });

TEST_F(DaemonTest, AbortSignalExitsWithStatusOne) {
  auto daemon = startRunning();
  ASSERT_TRUE(daemon->signal(SIGABRT));
  ASSERT_TRUE(daemon->waitForExit());
  EXPECT_EQ(daemon->exitCode(), 1) << daemon->describeEnd() << "\n" << daemon->err();
  EXPECT_NE(daemon->err().find(abortLine(SIGABRT)), std::string::npos) << daemon->err();
  EXPECT_EQ(abortLines(*daemon), 1) << daemon->err();
}

TEST_F(DaemonTest, RecycleAndBrokenPipeSignalsDoNotEndIt) {
  auto daemon = startRunning();
  ASSERT_TRUE(daemon->signal(SIGUSR1));
  ASSERT_TRUE(daemon->signal(SIGPIPE));
  expectAlive(*daemon);
  EXPECT_EQ(abortLines(*daemon), 0) << daemon->err();
  // And it still stops in two steps afterwards.
  ASSERT_TRUE(daemon->signal(SIGINT));
  ASSERT_TRUE(daemon->waitForError(abortLine(SIGINT)));
}

TEST_F(DaemonTest, EndpointFailureTearsDownAndExitsWithStatusZero) {
  // A configuration that defines no PCM at all: "hw:0,3" cannot be opened.
  sandbox_.write("alsa-empty.conf", "# no devices\n");
  auto daemon = start({"ALSA_CONFIG_PATH=" + sandbox_.file("alsa-empty.conf")});
  ASSERT_TRUE(daemon->waitForExit()) << daemon->out();
  EXPECT_EQ(daemon->exitCode(), 0) << daemon->describeEnd();
  std::string out = daemon->out();
  EXPECT_TRUE(std::regex_search(out, std::regex("\n-->main [0-9]+: velquare_audioprocess_init err!\n"))) << out;
  // Neither the angle service nor the heartbeat ever started.
  EXPECT_EQ(out.find("init ok!"), std::string::npos) << out;
  EXPECT_EQ(heartbeat(), 0u);
}

}  // namespace
