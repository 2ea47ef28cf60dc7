#include "audio/capture_recording.h"

#include <unistd.h>

#include "audio/audioprocess.h"
#include "edge_config.h"

namespace {

constexpr const char *kMarkerPath = QV_ROOT_DIR "/recaudio";

struct RecordingKind {
  uint32_t type;
  const char *path;
  uint8_t channels;  // WAV channels field
  bool withHeader;
};

// The line-in's channels field says 4, but its file is written without a header.
const RecordingKind kKinds[] = {
    {AUDIOPROCESS_DIGITMIC, QV_TMP_DIR "/recCapAudioDigitMic.wav", 8, true},
    {AUDIOPROCESS_ANALOGMIC, QV_TMP_DIR "/recCapAudioAnalogMic.wav", 8, true},
    {AUDIOPROCESS_LINEIN, QV_TMP_DIR "/recCapAudioLinein.wav", 4, false},
};

}  // namespace

bool captureRecordingFor(uint32_t type, CaptureRecording *rec) {
  for (const RecordingKind &kind : kKinds) {
    if (kind.type != type) continue;
    rec->path = kind.path;
    rec->withHeader = kind.withHeader;
    wavHeaderFill(rec->header, kind.channels);
    rec->file = nullptr;
    return true;
  }
  return false;
}

void captureRecordingStep(CaptureRecording *rec, const uint8_t *chunk, size_t bytes) {
  if (access(kMarkerPath, F_OK) != 0) {
    captureRecordingClose(rec);
    return;
  }
  if (!rec->file) {
    rec->file = fopen(rec->path, "w+");
    if (!rec->file) return;  // nothing recorded for this chunk; tried again with the next
    if (rec->withHeader) fwrite(rec->header, 1, WAV_HEADER_BYTES, rec->file);
  }
  fwrite(chunk, 1, bytes, rec->file);
}

void captureRecordingClose(CaptureRecording *rec) {
  if (!rec->file) return;
  fclose(rec->file);
  rec->file = nullptr;
}
