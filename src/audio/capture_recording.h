// Debug recording of one capture endpoint: while the marker QV_ROOT_DIR
// "/recaudio" exists, every captured chunk is appended to the endpoint's file
// under QV_TMP_DIR, which is created afresh (header first) when the marker
// appears and closed when it goes away.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "audio/wav_header.h"

struct CaptureRecording {
  const char *path;  // the endpoint's recording file
  bool withHeader;   // the line-in recording is bare samples
  uint8_t header[WAV_HEADER_BYTES];
  FILE *file;  // open while recording
};

// The recording of a capture endpoint type; false for a type that has none.
bool captureRecordingFor(uint32_t type, CaptureRecording *rec);

// One chunk: follows the marker, then appends the chunk when recording.
void captureRecordingStep(CaptureRecording *rec, const uint8_t *chunk, size_t bytes);

void captureRecordingClose(CaptureRecording *rec);
