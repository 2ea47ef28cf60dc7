// Band noise floor of the voice model: minimum-controlled recursive averaging.
// The floor follows the band energy while the band looks noise-like (smoothed
// energy close to its recent minimum) and freezes while it looks like speech,
// so stationary noise and hum are learnt and speech is not.
#pragma once
#include <cstdint>

#include "orienangle/estimator/voice_model/voice_model_config.h"

struct BandNoise {
  int32_t started;                        // 1 after the first analysed frame
  int32_t framesInWindow;                 // frames since the minimum search restarted
  float smoothed[voice::kBands];          // recursively smoothed band energy
  float minimum[voice::kBands];           // minimum of `smoothed` over the last 1-2 windows
  float minimumCandidate[voice::kBands];  // minimum of the running window
  float presence[voice::kBands];          // smoothed speech-presence indicator, 0..1
  float floor[voice::kBands];             // the noise floor estimate
};

void bandNoiseUpdate(BandNoise *bn, const float bandEnergy[voice::kBands]);
