// The daemon's entry point: brings the process up in its fixed order, keeps
// the one-second heartbeat going for a supervisor, and tears the audio side
// down when the endpoints could not be brought up.
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "audio/audioprocess.h"
#include "common/shared_word.h"
#include "common/trace.h"
#include "lifecycle/build_time.h"
#include "lifecycle/process.h"
#include "lifecycle/state_segment.h"
#include "lifecycle/watchdog.h"
#include "orienangle/module/angle_service.h"
#include "update/update_signature.h"

// The endpoints the daemon runs: the digital microphone array and the
// line-in that carries the loudspeaker reference.
static constexpr int kDaemonEndpoints = AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN;

static constexpr BuildTime kBuildTime = parseBuildTime(__DATE__, __TIME__);

int main() {
  // Line-buffered even into a pipe or file, so a supervisor sees each line as it happens.
  setvbuf(stdout, nullptr, _IOLBF, 0);

  // A failed attach is not checked: the heartbeat below then faults, loudly.
  velquare_shm_create();
  StateSegment *segment = velquare_shm_get();

  if (velquare_hal_wdg_open() == 0) {
    QV_TRACE("create wdg proc\n");
    velquare_hal_wdg_start();
  } else {
    QV_TRACE("don't create wdg proc\n");
  }

  puts("VELQUARE_ORIENANGLE");
  printf("---compile time : %lld-%lld-%lld %lld:%lld:%lld\n", kBuildTime.year, kBuildTime.month,
         kBuildTime.day, kBuildTime.hour, kBuildTime.minute, kBuildTime.second);
  velquare_update_trust_report();

  signal(SIGINT, abort_signal_handler);
  signal(SIGTERM, abort_signal_handler);
  signal(SIGABRT, abort_signal_handler);
  signal(SIGUSR1, recycle_signal_handler);
  signal(SIGPIPE, SIG_IGN);

  readiFunc = snd_pcm_readi;

  if (velquare_audioprocess_init(kDaemonEndpoints) != 0) {
    QV_TRACE("velquare_audioprocess_init err!\n");
  } else {
    velquare_orienangle_proc_start();
    // Gives the angle service time to open the serial line and set up the
    // angle module before audio arrives.
    sleep(1);
    QV_TRACE("velquare_audioprocess_init ok!\n");
    velquare_audioprocess_proc_start(kDaemonEndpoints);
    sharedStore(runSeconds, 0);
    mainRun = 1;
    // Nothing clears mainRun: the process ends by a signal, by program_exit
    // or by a reboot.
    while (mainRun != 0) {
      sharedStore(segment->heartbeat, sharedLoad(segment->heartbeat) + 1);
      sleep(1);
      sharedStore(runSeconds, sharedLoad(runSeconds) + 1);
    }
  }

  // The run flag is cleared twice on purpose: before the endpoints go down, so
  // the angle service stops reading their pools, and again after the teardown.
  // Only the starter sets it, so the second store changes nothing; the
  // shutdown sequence is kept exactly as it is.
  sharedStore(angleProcRun, 0);
  velquare_audioprocess_uninit(kDaemonEndpoints);
  sharedStore(angleProcRun, 0);
  snd_config_update_free_global();
  program_exit(0);
}
