// quenvarile-supervise against the real daemon, in a sandbox whose capture
// devices read silence as fast as they are asked.
#include <gtest/gtest.h>
#include <sys/shm.h>

#include <sys/stat.h>

#include <csignal>

#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/eventually.h"

namespace {

const char kStarted[] = "quenvarile-supervise: started ";
constexpr DaemonProcess::Timeout kWait{30000};

pid_t lastDaemonPid(const std::string &log) {
  const size_t at = log.find("(pid ", log.rfind(kStarted));
  return at == std::string::npos ? -1 : atoi(log.c_str() + at + 5);
}

bool heartbeatMoves() {  // within 20 s
  const uint32_t first = readStateSegment("root").heartbeat;
  return eventually(
      [&] {
        return readStateSegment("root").present && readStateSegment("root").heartbeat != first;
      },
      20000);
}

void setUpdateWord(int32_t value) {  // the segment is 0666, as a daemon in an update writes it
  void *addr = shmat(shmget(ftok("root", 66), 0, 0), nullptr, 0);
  ASSERT_NE(addr, reinterpret_cast<void *>(-1));
  static_cast<volatile int32_t *>(addr)[2] = value;
  shmdt(addr);
}

TEST(Supervisor, RestartsAStoppedDaemonButNeverDuringAnUpdate) {
  Sandbox box;
  AlsaSandbox alsa(box);
  DaemonProcess supervisor({box.path(),
                            {alsa.environment()},
                            {QV_SUPERVISE_PATH, "--stall", "4", "--", QV_DAEMON_PATH}});
  ASSERT_TRUE(supervisor.waitForOutput(kStarted, kWait));
  ASSERT_TRUE(heartbeatMoves()) << supervisor.out();

  const pid_t hung = lastDaemonPid(supervisor.out());
  kill(hung, SIGSTOP);
  ASSERT_TRUE(supervisor.waitForOutput("heartbeat stalled", kWait) &&
              supervisor.waitForOutput(kStarted, kWait, 2));
  EXPECT_NE(kill(hung, 0), 0) << "the hung daemon is gone";
  ASSERT_TRUE(heartbeatMoves()) << supervisor.out();

  setUpdateWord(1);
  kill(lastDaemonPid(supervisor.out()), SIGSTOP);
  ASSERT_TRUE(supervisor.waitForOutput("during an update: not restarting", kWait))
      << supervisor.out();
  sleep(3);
  EXPECT_EQ(countOccurrences(supervisor.out(), kStarted), 2);
  setUpdateWord(0);
  ASSERT_TRUE(supervisor.waitForOutput(kStarted, kWait, 3)) << supervisor.out();
  EXPECT_EQ(countOccurrences(supervisor.out(), "restart in 2 s"), 1)
      << "backs off: the daemon had just started";

  ASSERT_TRUE(supervisor.signal(SIGTERM) && supervisor.waitForExit(kWait));
  EXPECT_EQ(supervisor.exitCode(), 0);
  EXPECT_EQ(countOccurrences(supervisor.out(), "ended: signal 15 (Terminated)"), 3)
      << "SIGTERM twice, each time";
}

// An update on trial: root/quenvarile is the new executable, root/quenvarile_Bak
// the real daemon it replaced.
struct TrialCase {
  const char *what;
  std::string program;  // the new executable's content
  const char *trialMark;
  bool kept;
};

std::string script(const std::string &body) { return "#!/bin/sh\n" + body + "\n"; }

std::vector<TrialCase> trialCases() {
  const std::string healthy = script(std::string("exec ") + QV_DAEMON_PATH);
  return {{"exits at once", script("exit 3"), "0\n", false},
          {"crashes", script("kill -SEGV $$"), "0\n", false},
          {"never beats", script("exec sleep 600"), "0\n", false},
          {"needs a library the board lacks", readFile(QV_NEEDS_ABSENT_LIBRARY), "0\n", false},
          {"started on trial three times already", healthy, "3\n", false},
          {"runs well", healthy, "0\n", true}};
}

struct SupervisorTrial : testing::TestWithParam<size_t> {};

TEST_P(SupervisorTrial, KeepsAHealthyUpdateAndPutsTheOldDaemonBackOtherwise) {
  const TrialCase c = trialCases()[GetParam()];
  SCOPED_TRACE(c.what);
  Sandbox box;
  AlsaSandbox alsa(box);
  const std::string old = readFile(QV_DAEMON_PATH);
  box.write("root/quenvarile_Bak", old);
  box.write("root/quenvarile", c.program);
  box.write("root/quenvarile_trial", c.trialMark);
  chmod("root/quenvarile_Bak", 0755);
  chmod("root/quenvarile", 0755);
  DaemonProcess supervisor(
      {box.path(),
       {alsa.environment()},
       {QV_SUPERVISE_PATH, "--stall", "4", "--confirm", "4", "--", "root/quenvarile"}});
  const char *verdict = c.kept ? "update kept" : "update rolled back";
  ASSERT_TRUE(supervisor.waitForOutput(verdict, kWait)) << supervisor.out();
  EXPECT_TRUE(heartbeatMoves()) << supervisor.out();
  sleep(1);
  EXPECT_EQ(countOccurrences(supervisor.out(), "quenvarile-supervise: update "), 1)
      << supervisor.out();
  EXPECT_EQ(access("root/quenvarile_trial", F_OK), -1);
  EXPECT_TRUE(box.read("root/quenvarile") == (c.kept ? c.program : old));
  EXPECT_TRUE(box.read("root/quenvarile_failed") == (c.kept ? "" : c.program));
  EXPECT_EQ(countOccurrences(supervisor.out(), kStarted), c.kept ? 1 : 2 - (c.trialMark[0] == '3'));
}

INSTANTIATE_TEST_SUITE_P(Updates, SupervisorTrial, testing::Range<size_t>(0, trialCases().size()));

}  // namespace
