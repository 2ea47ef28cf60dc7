// Hardware and software parameters of one endpoint's PCM, after the ALSA
// sample player's set-up, with fixed buffer sizes per endpoint type.
#include <alsa/asoundlib.h>

#include <cstdio>
#include <cstring>

#include "aplay/pcm_check.h"
#include "aplay/pcm_config.h"
#include "audio/audio_wiring.h"
#include "audio/audioprocess.h"
#include "common/shared_word.h"
#include "common/trace.h"

namespace {

constexpr snd_pcm_uframes_t kMicBufferFrames = 8192;   // 8-channel capture: 170 ms
constexpr snd_pcm_uframes_t kLineBufferFrames = 4096;  // line-in and line-out: 85 ms
constexpr unsigned kPeriodsPerBuffer = 4;
constexpr double kRateHighLimit = 1.05;  // granted rates outside 95%..105% of the request
constexpr double kRateLowLimit = 0.95;   // are reported (not fatal)
constexpr int kLastFormatValue = 52;     // highest format listed when S16_LE is refused
constexpr int kMicrosPerSecond = 1000000;
constexpr int kStopDelayMicros = 0;

void listFormats(snd_pcm_t *pcm, snd_pcm_hw_params_t *params) {
  fprintf(stderr, "Available formats:\n");
  for (int f = 0; f <= kLastFormatValue; f++)
    if (snd_pcm_hw_params_test_format(pcm, params, snd_pcm_format_t(f)) == 0)
      fprintf(stderr, "- %s\n", snd_pcm_format_name(snd_pcm_format_t(f)));
}

void warnInaccurateRate(snd_pcm_t *pcm, unsigned requested, unsigned granted) {
  // The request in single precision, the products in double.
  if (!(float(requested) * kRateHighLimit < granted || granted < float(requested) * kRateLowLimit))
    return;
  char plugHint[64];
  const char *name = snd_pcm_name(pcm);
  if (!name || strchr(name, ':'))
    plugHint[0] = 0;
  else
    snprintf(plugHint, sizeof plugHint, "(-Dplug:%s)", name);
  fprintf(stderr, "Warning: rate is not accurate (requested = %iHz, got = %iHz)\n", requested,
          granted);
  fprintf(stderr, "         please, try the plug plugin %s\n", plugHint);
}

// Frames for a delay in microseconds: negative delays count back from a full buffer.
snd_pcm_uframes_t thresholdFrames(int delayMicros, unsigned rate, snd_pcm_uframes_t bufferSize) {
  double frames = delayMicros <= 0
                      ? double(bufferSize) + double(rate) * delayMicros / kMicrosPerSecond
                      : double(rate) * delayMicros / kMicrosPerSecond;
  return snd_pcm_uframes_t(frames);
}

}  // namespace

int set_params(AudioEndpoint *ep) {
  snd_pcm_t *pcm = ep->pcm;
  snd_pcm_hw_params_t *params;
  snd_pcm_sw_params_t *swparams;
  snd_pcm_hw_params_alloca(&params);
  snd_pcm_sw_params_alloca(&swparams);

  int err = snd_pcm_hw_params_any(pcm, params);
  if (err < 0) {
    QV_PCM_FATAL("Broken configuration for this PCM: no configurations available");
  }
  if (ep->dumpHwParams) {
    fprintf(stderr, "HW Params of device \"%s\":\n", snd_pcm_name(pcm));
    // Two separator lines with nothing between them: the ALSA sample player
    // dumps the parameters between them; the dump was left out, the lines stay
    // so that logs keep their shape.
    fprintf(stderr, "--------------------\n");
    fprintf(stderr, "--------------------\n");
  }
  if (ep->mmapAccess) {
    snd_pcm_access_mask_t *mask;
    snd_pcm_access_mask_alloca(&mask);
    snd_pcm_access_mask_none(mask);
    snd_pcm_access_mask_set(mask, SND_PCM_ACCESS_MMAP_INTERLEAVED);
    snd_pcm_access_mask_set(mask, SND_PCM_ACCESS_MMAP_NONINTERLEAVED);
    snd_pcm_access_mask_set(mask, SND_PCM_ACCESS_MMAP_COMPLEX);
    err = snd_pcm_hw_params_set_access_mask(pcm, params, mask);
  } else {
    err = snd_pcm_hw_params_set_access(
        pcm, params,
        ep->interleaved ? SND_PCM_ACCESS_RW_INTERLEAVED : SND_PCM_ACCESS_RW_NONINTERLEAVED);
  }
  if (err < 0) {
    QV_PCM_FATAL("Access type not available");
  }
  err = snd_pcm_hw_params_set_format(pcm, params, ep->format);
  if (err < 0) {
    QV_PCM_ERROR("Sample format non available");
    listFormats(pcm, params);
    program_exit(1);
  }
  err = snd_pcm_hw_params_set_channels(pcm, params, ep->channels);
  if (err < 0) {
    QV_PCM_FATAL("Channels count non available");
  }

  unsigned requestedRate = ep->rate;
  unsigned rate = ep->rate;
  err = snd_pcm_hw_params_set_rate_near(pcm, params, &rate, nullptr);
  QV_PCM_ASSERT_OK(err);
  ep->rate = rate;
  warnInaccurateRate(pcm, requestedRate, rate);

  ep->bufferTime = 0;
  ep->bufferFrames = (ep->type == AUDIOPROCESS_DIGITMIC || ep->type == AUDIOPROCESS_ANALOGMIC)
                         ? kMicBufferFrames
                         : kLineBufferFrames;
  printf("-----> buffer_time : %d, buffer_frames : %d\n", int(ep->bufferTime),
         int(ep->bufferFrames));
  if (ep->periodTime == 0 && ep->periodFrames == 0) {
    if (ep->bufferTime > 0)
      ep->periodTime = ep->bufferTime / kPeriodsPerBuffer;
    else
      ep->periodFrames = ep->bufferFrames / kPeriodsPerBuffer;
  }
  printf("-----> period_time : %d, period_frames : %d\n", int(ep->periodTime),
         int(ep->periodFrames));

  if (ep->periodTime > 0) {
    unsigned periodTime = ep->periodTime;
    err = snd_pcm_hw_params_set_period_time_near(pcm, params, &periodTime, nullptr);
    ep->periodTime = periodTime;
  } else {
    snd_pcm_uframes_t periodFrames = ep->periodFrames;
    err = snd_pcm_hw_params_set_period_size_near(pcm, params, &periodFrames, nullptr);
    ep->periodFrames = uint32_t(periodFrames);
  }
  QV_PCM_ASSERT_OK(err);
  if (ep->bufferTime > 0) {
    unsigned bufferTime = ep->bufferTime;
    err = snd_pcm_hw_params_set_buffer_time_near(pcm, params, &bufferTime, nullptr);
    ep->bufferTime = bufferTime;
  } else {
    snd_pcm_uframes_t bufferFrames = ep->bufferFrames;
    err = snd_pcm_hw_params_set_buffer_size_near(pcm, params, &bufferFrames);
    ep->bufferFrames = uint32_t(bufferFrames);
  }
  QV_PCM_ASSERT_OK(err);
  ep->monotonic = snd_pcm_hw_params_is_monotonic(params);
  ep->canPause = snd_pcm_hw_params_can_pause(params);

  err = snd_pcm_hw_params(pcm, params);
  if (err < 0) {
    QV_PCM_FATAL("Unable to install hw params:");
  }
  snd_pcm_uframes_t chunkSize = 0, bufferSize = 0;
  snd_pcm_hw_params_get_period_size(params, &chunkSize, nullptr);
  snd_pcm_hw_params_get_buffer_size(params, &bufferSize);
  ep->chunk_size = uint32_t(chunkSize);
  printf("-----> pchunk_size : %lu, buffer_size : %lu\n", (unsigned long)chunkSize,
         (unsigned long)bufferSize);
  if (chunkSize == bufferSize) {
    QV_PCM_FATAL("Can't use period equal to buffer size (%lu == %lu)", (unsigned long)chunkSize,
                 (unsigned long)bufferSize);
  }

  snd_pcm_sw_params_current(pcm, swparams);
  (void)snd_pcm_sw_params_set_avail_min(pcm, swparams, chunkSize);
  snd_pcm_uframes_t startThreshold = thresholdFrames(sharedLoad(startDelay), rate, bufferSize);
  if (startThreshold < 1) startThreshold = 1;
  if (startThreshold > bufferSize) startThreshold = bufferSize;
  err = snd_pcm_sw_params_set_start_threshold(pcm, swparams, startThreshold);
  QV_PCM_ASSERT_OK(err);
  err = snd_pcm_sw_params_set_stop_threshold(pcm, swparams,
                                             thresholdFrames(kStopDelayMicros, rate, bufferSize));
  QV_PCM_ASSERT_OK(err);
  if (snd_pcm_sw_params(pcm, swparams) < 0) {
    QV_PCM_FATAL("unable to install sw params:");
  }

  ep->bits_per_sample = snd_pcm_format_physical_width(ep->format);
  ep->significant_bits_per_sample = snd_pcm_format_width(ep->format);
  ep->bufferFrames = uint32_t(bufferSize);
  ep->bits_per_frame = ep->bits_per_sample * int32_t(ep->channels);
  ep->chunk_bytes = int32_t(ep->chunk_size) * ep->bits_per_frame / 8;
  return 0;
}
