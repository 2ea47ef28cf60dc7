// The pieces of the process spine taken one by one, inside the test process:
// the abort handler and the exit routine on open PCM handles, the recycle
// signal, the shared state segment and the watchdog device open.
#include <gmock/gmock.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "audio/audioprocess.h"
#include "common/shared_word.h"
#include "lifecycle/process.h"
#include "lifecycle/state_segment.h"
#include "lifecycle/watchdog.h"
#include "support/daemon_process.h"
#include "support/sandbox.h"
#include "support/scripted_pcm.h"

namespace {

// Handles on PCMs that announce their closing, in all four endpoint records.
void openAnnouncingPcms() {
  for (AudioEndpoint &endpoint : gEndpoints)
    endpoint.pcm = (new ScriptedPcm("hw:0,3", SND_PCM_STREAM_CAPTURE, {}, true))->pcm();
}

// SIGABRT ends the process at once with status 1 and leaves the PCMs to the
// kernel; the exit routine closes every open one and exits with its status.
TEST(ExitPaths, AbortSignalLeavesThePcmsAndTheExitRoutineClosesThem) {
  using testing::HasSubstr;
  EXPECT_EXIT((openAnnouncingPcms(), abort_signal_handler(SIGABRT)), testing::ExitedWithCode(1),
              testing::AllOf(HasSubstr("Aborted by signal"), testing::Not(HasSubstr("pcm closed"))));
  EXPECT_EXIT((openAnnouncingPcms(), program_exit(7)), testing::ExitedWithCode(7),
              testing::ContainsRegex("^(pcm closed\n){4}$"));
}

TEST(Signals, RecycleSignalOnlyAsksTheCaptureWorkersToRecycle) {
  signal(SIGUSR1, recycle_signal_handler);
  sharedStore(recycleCapture, 0);
  ASSERT_EQ(raise(SIGUSR1), 0);
  EXPECT_EQ(sharedLoad(recycleCapture), 1);
  EXPECT_EQ(sharedLoad(inAborting), 0);
}

TEST(StateSegment, CreatesTwelveBytesReadableByASupervisor) {
  Sandbox sandbox;
  ASSERT_EQ(velquare_shm_create(), 0);
  StateSegment *segment = velquare_shm_get();
  ASSERT_NE(segment, nullptr);
  int id = shmget(ftok("root", SHM_PROJECT_ID), 0, 0);
  ASSERT_NE(id, -1);
  shmid_ds info{};
  ASSERT_EQ(shmctl(id, IPC_STAT, &info), 0);
  EXPECT_EQ(info.shm_segsz, 12u);
  EXPECT_EQ(info.shm_perm.mode & 0777, 0666u);

  segment->heartbeat = 41;
  segment->position = 90;
  segment->updating = 1;
  SegmentSnapshot seen = readStateSegment(sandbox.file("root"));
  EXPECT_TRUE(seen.present);
  EXPECT_EQ(seen.heartbeat, 41u);
  EXPECT_EQ(seen.position, 90);
  EXPECT_EQ(seen.updating, 1);

  // Only the detach removes it.
  EXPECT_EQ(velquare_shm_detach(), 0);
  EXPECT_FALSE(readStateSegment(sandbox.file("root")).present);
}

TEST(StateSegment, TakesAnExistingSegmentThatDoesNotFitAsItIs) {
  Sandbox sandbox;
  key_t key = ftok("root", SHM_PROJECT_ID);
  int id = shmget(key, 4, 0600 | IPC_CREAT);  // smaller than asked for: the creating call fails
  ASSERT_NE(id, -1);
  auto *theirs = static_cast<uint32_t *>(shmat(id, nullptr, 0));
  ASSERT_NE(theirs, reinterpret_cast<void *>(-1));
  *theirs = 1234;

  ASSERT_EQ(velquare_shm_create(), 0);
  ASSERT_NE(velquare_shm_get(), nullptr);
  EXPECT_EQ(velquare_shm_get()->heartbeat, 1234u);
  shmdt(theirs);
  shmctl(id, IPC_RMID, nullptr);
}

TEST(Watchdog, OpensTheDeviceOnlyWhenItExistsAndNotAsDescriptorZero) {
  Sandbox sandbox;
  EXPECT_EQ(velquare_hal_wdg_open(), -1);
  sandbox.write("dev/gpiocustom", "");
  EXPECT_EQ(velquare_hal_wdg_open(), 0);

  int savedStdin = dup(STDIN_FILENO);
  ASSERT_NE(savedStdin, -1);
  close(STDIN_FILENO);
  EXPECT_EQ(velquare_hal_wdg_open(), -1);  // the open got descriptor 0
  dup2(savedStdin, STDIN_FILENO);
  close(savedStdin);
}

}  // namespace
