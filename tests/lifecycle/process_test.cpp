// The pieces of the process spine taken one by one, inside the test process:
// the abort handler and the exit routine on open PCM handles, the recycle
// signal, the shared state segment and the watchdog device open.
#include <gmock/gmock.h>
#include <sys/shm.h>
#include <unistd.h>

#include <csignal>
#include <tuple>

#include "audio/audioprocess.h"
#include "common/shared_word.h"
#include "lifecycle/process.h"
#include "lifecycle/state_segment.h"
#include "lifecycle/watchdog.h"
#include "support/daemon_process.h"
#include "support/sandbox.h"
#include "support/scripted_pcm.h"

namespace {

using testing::HasSubstr;

// Handles on PCMs that announce their closing, in all four endpoint records;
// the objects stay reachable, as nothing frees them before the process ends.
ScriptedPcm *announcing[4];
void openAnnouncingPcms() {
  for (int i = 0; i < 4; ++i)
    gEndpoints[i].pcm =
        (announcing[i] = new ScriptedPcm("hw:0,3", SND_PCM_STREAM_CAPTURE, {}, true))->pcm();
}

// SIGABRT ends the process at once with status 1 and leaves the PCMs to the
// kernel; the exit routine closes every open one and exits with its status.
TEST(ExitPaths, AbortSignalLeavesThePcmsAndTheExitRoutineClosesThem) {
  EXPECT_EXIT(
      (openAnnouncingPcms(), abort_signal_handler(SIGABRT)), testing::ExitedWithCode(1),
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

// A supervisor reads the segment from outside; only the detach removes it.
TEST(StateSegment, CreatesTwelveBytesForEveryoneAndTakesAnExistingOneAsItIs) {
  Sandbox sandbox;
  ASSERT_EQ(velquare_shm_create(), 0);
  shmid_ds info{};
  ASSERT_EQ(shmctl(shmget(ftok("root", SHM_PROJECT_ID), 0, 0), IPC_STAT, &info), 0);
  EXPECT_EQ(std::make_tuple(info.shm_segsz, info.shm_perm.mode & 0777),
            std::make_tuple(size_t{12}, 0666));
  *velquare_shm_get() = StateSegment{41, 90, {}, 1};
  const SegmentSnapshot seen = readStateSegment(sandbox.file("root"));
  EXPECT_TRUE(seen.present && seen.heartbeat == 41 && seen.position == 90 && seen.updating == 1);
  EXPECT_EQ(velquare_shm_detach(), 0);
  EXPECT_FALSE(readStateSegment(sandbox.file("root")).present);

  // One that is too small makes the creating call fail: it is taken as it is.
  const int id = shmget(ftok("root", SHM_PROJECT_ID), 4, 0600 | IPC_CREAT);
  ASSERT_EQ(velquare_shm_create(), 0);
  ASSERT_EQ(shmctl(id, IPC_STAT, &info), 0);
  EXPECT_EQ(info.shm_nattch, 1u);
  shmctl(id, IPC_RMID, nullptr);
}

TEST(Watchdog, OpensTheDeviceOnlyWhenItExistsAndNotAsDescriptorZero) {
  Sandbox sandbox;
  EXPECT_EQ(velquare_hal_wdg_open(), -1);
  sandbox.write("dev/gpiocustom", "");
  EXPECT_EQ(velquare_hal_wdg_open(), 0);
  const int savedStdin = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  EXPECT_EQ(velquare_hal_wdg_open(), -1);  // the open got descriptor 0
  dup2(savedStdin, STDIN_FILENO);
  close(savedStdin);
}

}  // namespace
