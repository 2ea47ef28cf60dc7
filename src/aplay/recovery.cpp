// Over- and underrun and suspend recovery, after the ALSA sample player.
#include <alsa/asoundlib.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "aplay/pcm_check.h"
#include "aplay/pcm_config.h"
#include "audio/audio_wiring.h"
#include "common/trace.h"

namespace {
constexpr long kNanosPerSecond = 1000000000;
constexpr unsigned kResumeRetrySeconds = 1;
}  // namespace

void xrun(snd_pcm_t *pcm, int stream, bool monotonic) {
  snd_pcm_status_t *status;
  snd_pcm_status_alloca(&status);
  int res = snd_pcm_status(pcm, status);
  if (res < 0) {
    QV_PCM_FATAL("status error: %s", snd_strerror(res));
  }
  snd_pcm_state_t state = snd_pcm_status_get_state(status);
  if (state == SND_PCM_STATE_XRUN) {
    // The trigger's time stamp is on the PCM's own clock: the monotonic one
    // for the kernel's devices, whose difference to the wall clock is the
    // time since 1970, not the length of the overrun.
    struct timespec now, trigger;
    clock_gettime(monotonic ? CLOCK_MONOTONIC : CLOCK_REALTIME, &now);
    snd_pcm_status_get_trigger_htstamp(status, &trigger);
    long sec = now.tv_sec - trigger.tv_sec;  // time_t is 32-bit on the board: no integer product
    long nsec = now.tv_nsec - trigger.tv_nsec;
    if (nsec < 0) {
      sec--;
      nsec += kNanosPerSecond;
    }
    fprintf(stderr, "%s!!! (at least %.3f ms long)\n",
            stream == SND_PCM_STREAM_PLAYBACK ? "underrun" : "overrun", sec * 1000.0 + nsec / 1e6);
    if ((res = snd_pcm_prepare(pcm)) < 0) {
      QV_PCM_FATAL("xrun: prepare error: %s", snd_strerror(res));
    }
    return;
  }
  if (state == SND_PCM_STATE_DRAINING && stream == SND_PCM_STREAM_CAPTURE) {
    fprintf(stderr, "capture stream format change? attempting recover...\n");
    if ((res = snd_pcm_prepare(pcm)) < 0) {
      QV_PCM_FATAL("xrun(DRAINING): prepare error: %s", snd_strerror(res));
    }
    return;
  }
  QV_PCM_FATAL("read/write error, state = %s", snd_pcm_state_name(state));
}

void suspend(snd_pcm_t *pcm) {
  int res;
  fprintf(stderr, "Suspended. Trying resume. ");
  fflush(stderr);
  while ((res = snd_pcm_resume(pcm)) == -EAGAIN) sleep(kResumeRetrySeconds);
  if (res < 0) {
    fprintf(stderr, "Failed. Restarting stream. ");
    fflush(stderr);
    if ((res = snd_pcm_prepare(pcm)) < 0) {
      QV_PCM_FATAL("suspend: prepare error: %s", snd_strerror(res));
    }
  }
  fprintf(stderr, "Done.\n");
}
