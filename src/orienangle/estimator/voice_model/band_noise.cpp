#include "orienangle/estimator/voice_model/band_noise.h"

#include <algorithm>

using namespace voice;

namespace {
void start(BandNoise *bn, const float *energy) {
  for (int b = 0; b < kBands; ++b) {
    const float e = std::max(energy[b], kMinBandEnergy);
    bn->smoothed[b] = bn->minimum[b] = bn->minimumCandidate[b] = bn->floor[b] = e;
    bn->presence[b] = 0.0f;
  }
  bn->framesInWindow = 0;
  bn->started = 1;
}
}  // namespace

void bandNoiseUpdate(BandNoise *bn, const float bandEnergy[kBands]) {
  if (!bn->started) {
    start(bn, bandEnergy);
    return;
  }
  const bool restartWindow = ++bn->framesInWindow >= kMinimumWindowFrames;
  for (int b = 0; b < kBands; ++b) {
    const float e = bandEnergy[b];
    float &s = bn->smoothed[b];
    s = kEnergySmoothing * s + (1.0f - kEnergySmoothing) * e;
    bn->minimum[b] = std::min(bn->minimum[b], s);
    bn->minimumCandidate[b] = std::min(bn->minimumCandidate[b], s);
    if (restartWindow) {
      bn->minimum[b] = std::min(bn->minimumCandidate[b], s);
      bn->minimumCandidate[b] = s;
    }
    const float speechLike = s > kPresenceRatio * bn->minimum[b] ? 1.0f : 0.0f;
    bn->presence[b] =
        kPresenceSmoothing * bn->presence[b] + (1.0f - kPresenceSmoothing) * speechLike;
    // Averaging weight: kNoiseSmoothing when speech is absent, 1 (frozen) when present.
    const float keep = kNoiseSmoothing + (1.0f - kNoiseSmoothing) * bn->presence[b];
    float &floor = bn->floor[b];
    floor = keep * floor + (1.0f - keep) * e;
    if (s < floor) floor = s;  // follow a falling noise level at once
    floor = std::max(floor, kMinBandEnergy);
  }
  if (restartWindow) bn->framesInWindow = 0;
}
