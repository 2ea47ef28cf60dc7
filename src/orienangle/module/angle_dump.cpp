#include "orienangle/module/angle_dump.h"

#include <unistd.h>

#include "audio/wav_header.h"
#include "edge_config.h"

namespace {
constexpr char kMarker[] = QV_ROOT_DIR "/angleRecCapAudio";
constexpr uint8_t kMicChannels = 8;
}  // namespace

AngleDump angleDumpMic() { return {QV_TMP_DIR "/angleRecCapAudioAlg.wav", true, nullptr}; }

// The reference dump is raw 16-bit mono samples although its name ends in .wav.
AngleDump angleDumpSpkin() { return {QV_TMP_DIR "/angleRecCapAudioAlgLinein.wav", false, nullptr}; }

void angleDumpClose(AngleDump *dump) {
  if (dump->file == nullptr) return;
  fclose(dump->file);
  dump->file = nullptr;
}

void angleDumpBlock(AngleDump *dump, const uint8_t *block, size_t bytes) {
  if (access(kMarker, F_OK) != 0) {
    angleDumpClose(dump);
    return;
  }
  if (dump->file == nullptr) {
    dump->file = fopen(dump->path, "w+");
    if (dump->file == nullptr) return;  // tried again with the next block
    if (dump->withWavHeader) {
      uint8_t header[WAV_HEADER_BYTES];
      wavHeaderFill(header, kMicChannels);
      fwrite(header, 1, sizeof header, dump->file);
    }
  }
  fwrite(block, 1, bytes, dump->file);
  fflush(dump->file);  // the recording is whole up to the last block at any moment
}
