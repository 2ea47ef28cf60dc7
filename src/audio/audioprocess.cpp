// The four endpoint records and the operations that take them up and down by
// a mask of endpoint type codes.
#include "audio/audioprocess.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "common/frame_geometry.h"
#include "common/shared_word.h"
#include "common/thread_start.h"
#include "common/trace.h"
#include "edge_config.h"

int32_t recycleCapture = 0;
int32_t startDelay = 0;
ReadiFunc readiFunc = snd_pcm_readi;
AudioEndpoint gEndpoints[4];

namespace {

constexpr uint32_t kInitialChunkFrames = 256;  // replaced by the granted period in the PCM set-up
constexpr int32_t kStartDelayMicros = 1;       // the stream starts on the first read
constexpr unsigned kWorkerLeaveSeconds = 1;    // time for a worker to leave its loop at teardown
constexpr int kMaskBits = 4;

struct EndpointKind {
  uint32_t type;
  const char *name;
  const char *device;
  snd_pcm_stream_t stream;
  uint32_t channels;
};

const EndpointKind kLineOut = {AUDIOPROCESS_LINEOUT, "AUDIOPROCESS_LINEOUT", QV_PCM_LINE,
                               SND_PCM_STREAM_PLAYBACK, 4};
const EndpointKind kDigitMic = {AUDIOPROCESS_DIGITMIC, "AUDIOPROCESS_DIGITMIC", QV_PCM_DIGITMIC,
                                SND_PCM_STREAM_CAPTURE, FRAME_MIC_CHANNELS};
const EndpointKind kAnalogMic = {AUDIOPROCESS_ANALOGMIC, "AUDIOPROCESS_ANALOGMIC", QV_PCM_ANALOGMIC,
                                 SND_PCM_STREAM_CAPTURE, 8};
const EndpointKind kLineIn = {AUDIOPROCESS_LINEIN, "AUDIOPROCESS_LINEIN", QV_PCM_LINE,
                              SND_PCM_STREAM_CAPTURE, FRAME_LINEIN_CHANNELS};

// Start and teardown go by type code: line-out, digital mic, analog mic, line-in.
const EndpointKind *const kByTypeOrder[] = {&kLineOut, &kDigitMic, &kAnalogMic, &kLineIn};

// The endpoint that init handles at bit index `index`: the first of the tests
// digital mic, analog mic, line-in, line-out whose masked bit equals 1 << index.
// This also comes out in the order line-out, digital mic, analog mic, line-in.
const EndpointKind *initKindAt(int mask, int index) {
  const uint32_t bit = 1u << index;
  const uint32_t m = uint32_t(mask);
  if (bit == (m & AUDIOPROCESS_DIGITMIC)) return &kDigitMic;
  if (bit == (m & AUDIOPROCESS_ANALOGMIC)) return &kAnalogMic;
  if (bit == (m & AUDIOPROCESS_LINEIN)) return &kLineIn;
  if (bit == (m & AUDIOPROCESS_LINEOUT)) return &kLineOut;
  return nullptr;
}

}  // namespace

AudioEndpoint *velquare_audioprocess_endpoint(uint32_t type) {
  switch (type) {
    case AUDIOPROCESS_DIGITMIC: return &gEndpoints[EP_DIGITMIC];
    case AUDIOPROCESS_ANALOGMIC: return &gEndpoints[EP_ANALOGMIC];
    case AUDIOPROCESS_LINEOUT: return &gEndpoints[EP_LINEOUT];
    case AUDIOPROCESS_LINEIN: return &gEndpoints[EP_LINEIN];
    default: return nullptr;
  }
}

int buffpool_rw_by_type(uint32_t type, int direction, void *buffer, const int32_t *len) {
  AudioEndpoint *endpoint = velquare_audioprocess_endpoint(type);
  if (endpoint == nullptr) {
    if (direction == BUFFPOOL_WRITE || direction == BUFFPOOL_READ) puts("buffpool write|read err");
    return -1;
  }
  if (direction != BUFFPOOL_WRITE && direction != BUFFPOOL_READ) return -1;
  return buffpool_rw(&endpoint->pool, direction, buffer, len);
}

int velquare_audioprocess_init(int mask) {
  int result = 1;
  for (int index = 0; index < kMaskBits; index++) {
    const EndpointKind *kind = initKindAt(mask, index);
    if (!kind) continue;
    AudioEndpoint *ep = velquare_audioprocess_endpoint(kind->type);
    QV_TRACE("init %s\n", kind->name);
    ep->channels = kind->channels;
    ep->type = kind->type;
    ep->stream = uint32_t(kind->stream);
    snd_pcm_info_malloc(&ep->info);
    ep->chunk_size = kInitialChunkFrames;
    ep->interleaved = 1;
    ep->format = snd_pcm_format_value("S16_LE");
    ep->rate = AUDIOPROCESS_RATE;
    sharedStore(startDelay, kStartDelayMicros);

    int err = snd_pcm_open(&ep->pcm, kind->device, kind->stream, 0);
    if (err < 0) {
      QV_PCM_ERROR("snd_pcm_open error: %s", snd_strerror(err));
      return -1;
    }
    err = snd_pcm_info(ep->pcm, ep->info);
    if (err < 0) {
      QV_PCM_ERROR("snd_pcm_info error: %s", snd_strerror(err));
      return -1;
    }
    ep->audiobuf = static_cast<uint8_t *>(malloc(AUDIOPROCESS_CHUNK_BUFFER_BYTES));
    if (!ep->audiobuf) {
      QV_PCM_ERROR("not enough memory audiobufDigitMic");
      return -1;
    }
    buffpool_create(&ep->pool);  // a pool that cannot be created refuses every chunk later
    sharedStore(ep->active, 1);
    result = 0;
  }
  return result;
}

int velquare_audioprocess_proc_start(int mask) {
  for (const EndpointKind *kind : kByTypeOrder) {
    if (!(uint32_t(mask) & kind->type)) continue;
    AudioEndpoint *ep = velquare_audioprocess_endpoint(kind->type);
    QV_TRACE("start %s process\n", kind->name);
    bool playback = ep->type == AUDIOPROCESS_LINEOUT;
    // A worker that cannot start leaves its endpoint silent; the others run.
    (void)startThread(
        &ep->thread, nullptr,
        playback ? velquare_audioprocess_play_proc : velquare_audioprocess_capture_proc, &ep->type,
        playback ? "velquare_audioprocess_play_proc" : "velquare_audioprocess_capture_proc");
  }
  return 0;
}

int velquare_audioprocess_uninit(int mask) {
  for (const EndpointKind *kind : kByTypeOrder) {
    if (!(uint32_t(mask) & kind->type)) continue;
    AudioEndpoint *ep = velquare_audioprocess_endpoint(kind->type);
    QV_TRACE("uinit %s\n", kind->name);
    sharedStore(ep->active, 0);
    sleep(kWorkerLeaveSeconds);
    if (ep->pcm) {
      snd_pcm_close(ep->pcm);
      ep->pcm = nullptr;
    }
    free(ep->audiobuf);
    ep->audiobuf = nullptr;
    if (ep->info) {
      snd_pcm_info_free(ep->info);
      ep->info = nullptr;
    }
    buffpool_delete(&ep->pool);
  }
  return 0;
}
