// Geometry of one 20 ms frame as the capture side hands it to the angle side.
// Every frame, block and ring size of the daemon derives from these numbers;
// the estimator keeps its own copy of the first two (it includes nothing
// outside itself) and the angle module checks them against these.
#pragma once
#include <cstdint>

constexpr int32_t FRAME_SAMPLE_RATE = 48000;  // Hz, every endpoint
constexpr int32_t FRAME_SAMPLES = 960;        // samples per channel per frame (20 ms)
constexpr int32_t FRAME_SAMPLE_BYTES = 2;     // signed 16-bit little-endian ("S16_LE")
constexpr int32_t FRAME_SAMPLE_BITS = FRAME_SAMPLE_BYTES * 8;

constexpr int32_t FRAME_MIC_CHANNELS = 8;     // digital microphone array
constexpr int32_t FRAME_LINEIN_CHANNELS = 2;  // line-in; left: the loudspeaker reference

// One interleaved microphone frame: 960 samples x 8 channels x 2 bytes.
constexpr int32_t FRAME_MIC_BYTES = FRAME_SAMPLES * FRAME_MIC_CHANNELS * FRAME_SAMPLE_BYTES;
// One interleaved stereo line-in frame: 960 samples x 2 channels x 2 bytes.
constexpr int32_t FRAME_LINEIN_BYTES = FRAME_SAMPLES * FRAME_LINEIN_CHANNELS * FRAME_SAMPLE_BYTES;
// The loudspeaker reference of one frame: the left line-in channel alone.
constexpr int32_t FRAME_REF_BYTES = FRAME_SAMPLES * FRAME_SAMPLE_BYTES;

static_assert(FRAME_SAMPLES * 1000 / FRAME_SAMPLE_RATE == 20, "a frame is 20 ms");
static_assert(FRAME_MIC_BYTES == 15360, "microphone frames are 15360 bytes");
static_assert(FRAME_LINEIN_BYTES == 3840, "line-in frames are 3840 bytes");
static_assert(FRAME_REF_BYTES * FRAME_LINEIN_CHANNELS == FRAME_LINEIN_BYTES,
              "the reference is one of the line-in's two channels");
