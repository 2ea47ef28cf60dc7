// Test-mode level meter of the angle service: sums the energy of each
// microphone and of the loudspeaker reference over 250 frames, prints the
// levels, and fills the 11-byte level report frame for the host.
#pragma once
#include <cstdint>

#include "common/frame_geometry.h"
#include "hostlink/host_frames.h"

constexpr int LEVEL_MIC_CHANNELS = FRAME_MIC_CHANNELS;
constexpr int LEVEL_FRAME_SAMPLES = FRAME_SAMPLES;
constexpr int32_t LEVEL_PERIOD_FRAMES = 250;         // 5 s of 20 ms frames
constexpr int LEVEL_REPORT_BYTES = kLevelFrameSize;  // layout and codes in hostlink/host_frames.h
constexpr double LEVEL_ENERGY_DIVISOR = 5.0;         // the host's thresholds are in this unit
constexpr uint32_t LEVEL_READY_MIC = 1;
constexpr uint32_t LEVEL_READY_LINE = 2;

// The host's reporting choice, read once per report.
struct LevelThresholds {
  int32_t sendRetMode;  // 1: the code bytes carry the dB values themselves
  uint32_t micDBmax;
  uint32_t micDBmin;
};

struct LevelMeter {
  double micPower[LEVEL_MIC_CHANNELS];
  double linePower;
  int32_t micFrames;
  int32_t lineFrames;
  uint32_t readyMask;
  uint8_t levelFrame[LEVEL_REPORT_BYTES];
};

void levelMeterInit(LevelMeter *m);

// One interleaved 8-channel frame (960 x 8 samples). After the 250th frame of
// a period it prints the microphone report and fills bytes 1..8.
void levelMeterAddMic(LevelMeter *m, const int16_t *interleaved, const LevelThresholds &t);
// One reference frame (960 samples); the 250th fills byte 9.
void levelMeterAddLine(LevelMeter *m, const int16_t *samples, const LevelThresholds &t);
// Frames handed to the angle module instead: the period's frame count restarts
// (the partial sums stay, by design).
void levelMeterSkipMic(LevelMeter *m);
void levelMeterSkipLine(LevelMeter *m);

// True when both reports of a period exist: then the frame is completed
// (header, checksum) in `out`, the meter is reset to "no report yet" and the
// caller sends `out`.
bool levelMeterTakeReport(LevelMeter *m, uint8_t out[LEVEL_REPORT_BYTES]);

// The dB value of a summed energy, as the one byte the host sees: 10 log10
// of energy / 5, truncated, 0 for silence, low 8 bits.
uint8_t levelDbValue(double energy, double *meanOut);
