// Capture worker: configures its PCM, then reads chunk after chunk, records
// them while asked to and hands every chunk to the endpoint's pool.
#include "audio/capture_worker.h"

#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "aplay/pcm_config.h"
#include "audio/audioprocess.h"
#include "audio/capture_recording.h"
#include "common/shared_word.h"
#include "common/trace.h"

namespace {
constexpr int kWaitMillis = 100;  // wait for data after an empty or short read
}  // namespace

uint32_t pcm_read(AudioEndpoint *ep) {
  snd_pcm_uframes_t count = ep->chunk_size;
  uint8_t *data = ep->audiobuf;
  uint32_t frames = 0;
  while (count > 0 && !sharedLoad(ep->stop)) {
    // The exit routine and the SIGABRT handler clear the handles while this
    // worker may still be looping: a cleared handle means the process is
    // ending, and reading through it would assert inside libasound.
    snd_pcm_t *pcm = sharedLoad(ep->pcm);
    if (pcm == nullptr) break;
    snd_pcm_sframes_t r = readiFunc(pcm, data, count);
    if (r == -EAGAIN || (r >= 0 && snd_pcm_uframes_t(r) < count)) {
      snd_pcm_wait(pcm, kWaitMillis);
    } else if (r == -EPIPE) {
      xrun(pcm, int(ep->stream), ep->monotonic != 0);
    } else if (r == -ESTRPIPE) {
      suspend(pcm);
    } else if (r < 0) {
      QV_PCM_ERROR("read error: %s", snd_strerror(int(r)));
    }
    if (r > 0) {
      count -= snd_pcm_uframes_t(r);
      data += r * ep->bits_per_frame / 8;
      frames += uint32_t(r);
    }
  }
  return frames;
}

void captureFitChunkBuffer(AudioEndpoint *ep) {
  if (ep->chunk_bytes <= int32_t(AUDIOPROCESS_CHUNK_BUFFER_BYTES)) return;
  uint8_t *grown = static_cast<uint8_t *>(realloc(ep->audiobuf, size_t(ep->chunk_bytes)));
  if (grown) {
    ep->audiobuf = grown;
    return;
  }
  // Keep the buffer and read fewer frames per chunk.
  QV_PCM_ERROR("not enough memory for a chunk of %d bytes", ep->chunk_bytes);
  ep->chunk_size = AUDIOPROCESS_CHUNK_BUFFER_BYTES / uint32_t(ep->bits_per_frame / 8);
  ep->chunk_bytes = int32_t(ep->chunk_size) * ep->bits_per_frame / 8;
}

void captureStep(AudioEndpoint *ep, CaptureRecording *rec) {
  pcm_read(ep);
  // The chunk counts as whole even when the read ended early.
  captureRecordingStep(rec, ep->audiobuf, size_t(ep->chunk_bytes));
  int32_t len = ep->chunk_bytes;
  buffpool_rw(&ep->pool, BUFFPOOL_WRITE, ep->audiobuf, &len);
}

void *velquare_audioprocess_capture_proc(void *typeField) {
  pthread_detach(pthread_self());
  uint32_t type = *static_cast<uint32_t *>(typeField);
  pthread_setname_np(pthread_self(), type == AUDIOPROCESS_LINEIN      ? "qv-cap-linein"
                                     : type == AUDIOPROCESS_ANALOGMIC ? "qv-cap-analog"
                                                                      : "qv-cap-digit");
  if (type == AUDIOPROCESS_LINEIN) QV_TRACE("\n");
  CaptureRecording rec;
  AudioEndpoint *ep = velquare_audioprocess_endpoint(type);
  if (!ep || !captureRecordingFor(type, &rec)) {
    QV_TRACE("unkown type, create audioprocess err\n");
    return nullptr;
  }
  set_params(ep);
  captureFitChunkBuffer(ep);
  sharedStore(ep->stop, 0);
  while (sharedLoad(ep->active)) {
    while (!sharedLoad(ep->stop)) captureStep(ep, &rec);
    if (sharedLoad(recycleCapture)) {
      sharedStore(recycleCapture, 0);
      signal(SIGUSR1, recycle_signal_handler);
    }
  }
  captureRecordingClose(&rec);
  return nullptr;
}

void recycle_signal_handler(int) { sharedStore(recycleCapture, 1); }
