// The pieces of the process spine taken one by one, inside the test process:
// the build-time banner's numbers, the abort handler and the exit routine on
// open PCM handles, the shared state segment and the watchdog device open.
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "audio/audioprocess.h"
#include "lifecycle/build_time.h"
#include "lifecycle/process.h"
#include "lifecycle/state_segment.h"
#include "lifecycle/watchdog.h"
#include "support/daemon_process.h"
#include "support/sandbox.h"

namespace {

TEST(BuildTime, TakesTheCompilersDateAndTimeApartWithoutLeadingZeros) {
  constexpr BuildTime t = parseBuildTime("Mar  5 2020", "09:14:42");
  static_assert(t.year == 2020 && t.month == 3 && t.day == 5, "date");
  static_assert(t.hour == 9 && t.minute == 14 && t.second == 42, "time");
  const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int m = 0; m < 12; ++m) {
    BuildTime u = parseBuildTime((std::string(months[m]) + " 31 1999").c_str(), "00:07:00");
    EXPECT_TRUE(u.year == 1999 && u.month == m + 1 && u.day == 31 && u.hour == 0 && u.minute == 7 && u.second == 0)
        << months[m];
  }
}

// Registered inside the death tests: runs within exit() and says whether the
// exit routine had cleared every handle by then.
void reportHandles() {
  bool cleared = true;
  for (AudioEndpoint &endpoint : gEndpoints) cleared = cleared && endpoint.pcm == nullptr;
  fprintf(stderr, cleared ? "handles cleared\n" : "handles left open\n");
}

// The first SIGINT/SIGTERM, which only reports, is seen on the running daemon.
TEST(OpenPcms, AbortSignalAndExitRoutineCloseEveryOpenHandleAndExitWithTheirStatus) {
  // Handles on ALSA's null plugin, from a configuration that defines nothing else.
  Sandbox sandbox;
  sandbox.write("alsa-null.conf", "pcm.null { type null }\n");
  setenv("ALSA_CONFIG_PATH", sandbox.file("alsa-null.conf").c_str(), 1);
  auto open = [](std::initializer_list<AudioEndpointIndex> indexes) {
    for (AudioEndpointIndex i : indexes)
      if (snd_pcm_open(&gEndpoints[i].pcm, "null", i == EP_LINEOUT ? SND_PCM_STREAM_PLAYBACK : SND_PCM_STREAM_CAPTURE,
                       0) != 0)
        _exit(99);
    atexit(reportHandles);
  };
  EXPECT_EXIT((open({EP_DIGITMIC, EP_LINEOUT}), abort_signal_handler(SIGABRT)), testing::ExitedWithCode(1),
              "Aborted by signal .*\\.\\.\\.\nhandles cleared");
  EXPECT_EXIT((open({EP_DIGITMIC, EP_ANALOGMIC, EP_LINEIN, EP_LINEOUT}), program_exit(7)), testing::ExitedWithCode(7),
              "handles cleared");
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

TEST(StateSegment, MissingKeyDirectoryGivesNoSegment) {
  Sandbox sandbox;
  ASSERT_EQ(rmdir("root"), 0);
  EXPECT_EQ(velquare_shm_create(), -1);
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
