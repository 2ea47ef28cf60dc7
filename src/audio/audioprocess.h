// The four ALSA endpoints of the board and the operations that bring them up
// and down by a bit mask.
#pragma once
#include <alsa/asoundlib.h>
#include <pthread.h>
#include <cstdint>

#include "audio/buffpool.h"
#include "common/frame_geometry.h"

constexpr uint32_t AUDIOPROCESS_LINEOUT = 1;
constexpr uint32_t AUDIOPROCESS_DIGITMIC = 2;
constexpr uint32_t AUDIOPROCESS_ANALOGMIC = 4;
constexpr uint32_t AUDIOPROCESS_LINEIN = 8;

constexpr uint32_t AUDIOPROCESS_RATE = FRAME_SAMPLE_RATE;
constexpr uint32_t AUDIOPROCESS_CHUNK_BUFFER_BYTES = 20480;

struct AudioEndpoint {
  int32_t active;
  pthread_t thread;
  uint32_t type;
  uint32_t stream;
  snd_pcm_t *pcm;
  int32_t dumpHwParams;
  int32_t mmapAccess;
  int32_t interleaved;
  int32_t monotonic;
  int32_t canPause;
  uint32_t periodTime;
  uint32_t bufferTime;
  uint32_t periodFrames;
  uint32_t bufferFrames;
  snd_pcm_info_t *info;
  int32_t significant_bits_per_sample;
  int32_t bits_per_sample;
  int32_t bits_per_frame;
  int32_t chunk_bytes;
  uint32_t chunk_size;
  int32_t stop;
  snd_pcm_format_t format;
  uint32_t channels;
  uint32_t rate;
  uint8_t *audiobuf;
  BuffPool pool;
};

using ReadiFunc = snd_pcm_sframes_t (*)(snd_pcm_t *, void *, snd_pcm_uframes_t);

extern int32_t recycleCapture;  // set by SIGUSR1, consumed by the capture workers
extern int32_t startDelay;      // start delay in microseconds for the PCM set-up
extern ReadiFunc readiFunc;     // frame read used by the capture workers (test seam)
// SIGUSR1: asks the capture workers to re-arm it (sets recycleCapture).
void recycle_signal_handler(int sig);

// Records in the order digital mic, analog mic, line-out, line-in.
enum AudioEndpointIndex { EP_DIGITMIC = 0, EP_ANALOGMIC = 1, EP_LINEOUT = 2, EP_LINEIN = 3 };
extern AudioEndpoint gEndpoints[4];

// The record of an endpoint type code, or null for an unknown code.
AudioEndpoint *velquare_audioprocess_endpoint(uint32_t type);
// buffpool_rw on the pool of an endpoint type code; -1 for an unknown code
// or a direction other than BUFFPOOL_READ / BUFFPOOL_WRITE.
int buffpool_rw_by_type(uint32_t type, int direction, void *buffer, const int32_t *len);

int velquare_audioprocess_init(int mask);
int velquare_audioprocess_proc_start(int mask);
int velquare_audioprocess_uninit(int mask);

void *velquare_audioprocess_capture_proc(void *typeField);
void *velquare_audioprocess_play_proc(void *typeField);
