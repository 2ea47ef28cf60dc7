#include "orienangle/estimator/voice_model/band_gain.h"

#include <algorithm>

using namespace voice;

void bandGainUpdate(BandGain *bg, const float bandEnergy[kBands], const float noiseFloor[kBands],
                    bool voiced, float out[kBands]) {
  const float ceiling = voiced ? 1.0f : kUnvoicedGainCeiling;
  for (int b = 0; b < kBands; ++b) {
    const float posteriori = bandEnergy[b] / noiseFloor[b];
    const float fresh = std::max(posteriori - 1.0f, 0.0f);
    const float priori = std::max(
        kDecisionDirectedWeight * bg->cleanSnr[b] + (1.0f - kDecisionDirectedWeight) * fresh,
        kMinPrioriSnr);
    const float wiener = priori / (1.0f + priori);
    bg->cleanSnr[b] = wiener * wiener * posteriori;
    const float gain = std::max(std::min(wiener, ceiling), kGainReleaseFloor * bg->lastGain[b]);
    bg->lastGain[b] = gain;
    out[b] = gain;
  }
}
