// Over- and underrun and suspend recovery, after the ALSA sample player.
#include <alsa/asoundlib.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "aplay/pcm_check.h"
#include "aplay/pcm_config.h"
#include "audio/audio_wiring.h"
#include "common/trace.h"

namespace {
constexpr long kMicrosPerSecond = 1000000;
constexpr unsigned kResumeRetrySeconds = 1;
}  // namespace

void xrun(snd_pcm_t *pcm, int stream) {
  snd_pcm_status_t *status;
  snd_pcm_status_alloca(&status);
  int res = snd_pcm_status(pcm, status);
  if (res < 0) {
    QV_PCM_FATAL("status error: %s", snd_strerror(res));
  }
  snd_pcm_state_t state = snd_pcm_status_get_state(status);
  if (state == SND_PCM_STATE_XRUN) {
    struct timeval now, trigger, diff;
    gettimeofday(&now, nullptr);
    snd_pcm_status_get_trigger_tstamp(status, &trigger);
    diff.tv_sec = now.tv_sec - trigger.tv_sec;
    diff.tv_usec = now.tv_usec - trigger.tv_usec;
    if (diff.tv_usec < 0) {
      diff.tv_sec--;
      diff.tv_usec += kMicrosPerSecond;
    }
    fprintf(stderr, "%s!!! (at least %.3f ms long)\n",
            stream == SND_PCM_STREAM_PLAYBACK ? "underrun" : "overrun",
            diff.tv_sec * 1000.0 +
                diff.tv_usec / 1000.0);  // time_t is 32-bit on the board: no integer product
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
