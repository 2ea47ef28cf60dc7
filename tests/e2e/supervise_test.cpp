// quenvarile-supervise against the real daemon, in a sandbox whose capture
// devices read silence as fast as they are asked.
#include <gtest/gtest.h>
#include <sys/shm.h>

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

}  // namespace
