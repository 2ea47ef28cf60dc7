// The capture worker's stages, callable one at a time (the worker thread
// runs them in a loop; tests drive them chunk by chunk).
#pragma once
#include <cstdint>

struct AudioEndpoint;
struct CaptureRecording;

// Reads one chunk of chunk_size frames into audiobuf through readiFunc,
// recovering from overruns and suspends; ends early when stop is set.
// Returns the frames read.
uint32_t pcm_read(AudioEndpoint *ep);

// Grows audiobuf to the negotiated chunk when it is larger than the buffer
// allocated at init.
void captureFitChunkBuffer(AudioEndpoint *ep);

// One chunk: read, record while the marker exists, push into the pool.
void captureStep(AudioEndpoint *ep, CaptureRecording *rec);
