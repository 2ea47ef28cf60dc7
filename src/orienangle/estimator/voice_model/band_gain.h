// Noise-suppression gains of the voice model: a Wiener gain per band from a
// decision-directed a-priori SNR, with a release floor of 0.6 x the previous gain.
#pragma once

#include "orienangle/estimator/voice_model/voice_model_config.h"

struct BandGain {
  float lastGain[voice::kBands];  // the gains published for the previous frame
  float cleanSnr[voice::kBands];  // previous frame's clean-speech power over the noise floor
};

// Computes this frame's gains into `out` and keeps them as the last gains;
// unless the frame holds voice they stay at or below kUnvoicedGainCeiling
// (or the release floor, if that is higher).
void bandGainUpdate(BandGain *bg, const float bandEnergy[voice::kBands],
                    const float noiseFloor[voice::kBands], bool voiced, float out[voice::kBands]);
