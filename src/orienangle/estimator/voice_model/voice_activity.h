// Voice activity of the voice model: a one-hidden-layer network on the bands'
// log SNR (now and smoothed over two spans) and log energy gives the
// probability that the frame holds voice.
#pragma once

#include "orienangle/estimator/voice_model/voice_model_config.h"

struct VoiceActivity {
  float shortSnr[voice::kBands];  // log10 band SNR smoothed over about 30 ms
  float longSnr[voice::kBands];   // ... and over about 200 ms
};

// Returns the voice probability of this frame, 0..1.
float voiceActivityUpdate(VoiceActivity *va, const float bandEnergy[voice::kBands],
                          const float noiseFloor[voice::kBands]);
