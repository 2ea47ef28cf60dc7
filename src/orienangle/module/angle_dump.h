// Debug recordings of the angle module's input, switched by a marker file:
// while QV_ROOT_DIR/angleRecCapAudio exists every block the worker takes is
// appended to its dump file; when the marker goes, the file is closed. A new
// marker starts the file afresh.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>

struct AngleDump {
  const char *path;
  bool withWavHeader;  // the microphone dump starts with the constant header
  FILE *file;
};

AngleDump angleDumpMic();    // QV_TMP_DIR/angleRecCapAudioAlg.wav, 8-channel WAV header
AngleDump angleDumpSpkin();  // QV_TMP_DIR/angleRecCapAudioAlgLinein.wav, raw samples only

void angleDumpBlock(AngleDump *dump, const uint8_t *block, size_t bytes);
void angleDumpClose(AngleDump *dump);
