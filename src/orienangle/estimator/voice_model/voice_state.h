// The voice model's state record. All of it is plain data and an all-zero
// record is a valid fresh state (rnnoise_init zero-fills it; the FFT plan and
// window are rebuilt inside it on the next frame).
#pragma once

#include "orienangle/estimator/voice_model/band_analysis.h"
#include "orienangle/estimator/voice_model/band_gain.h"
#include "orienangle/estimator/voice_model/band_noise.h"
#include "orienangle/estimator/voice_model/rnnoise.h"
#include "orienangle/estimator/voice_model/voice_activity.h"

struct DenoiseState {
  BandAnalysis analysis;
  BandNoise noise;
  BandGain gain;
  VoiceActivity activity;
};
