#include "orienangle/estimator/voice_model/voice_activity.h"

#include <algorithm>
#include <cmath>

using namespace voice;

namespace {
// Log-likelihood ratio of speech over noise for one band under Gaussian
// models: posteriori * priori / (1 + priori) - log(1 + priori).
float bandLogRatio(float priori, float posteriori) {
  return posteriori * priori / (1.0f + priori) - std::log1p(priori);
}
}  // namespace

float voiceActivityUpdate(VoiceActivity *va, const float prioriSnr[kBands],
                          const float posterioriSnr[kBands]) {
  float sum = 0.0f;
  for (int b = kVoiceFirstBand; b <= kVoiceLastBand; ++b)
    sum += bandLogRatio(prioriSnr[b], posterioriSnr[b]);
  va->meanLogRatio = sum / static_cast<float>(kVoiceLastBand - kVoiceFirstBand + 1);
  // Clamp the exponent: the ratio can be huge on loud onsets.
  const float z = std::clamp(kLikelihoodSlope * (va->meanLogRatio - kLikelihoodThreshold), -30.0f, 30.0f);
  float probability = 1.0f / (1.0f + std::exp(-z));

  if (probability > 0.5f) {
    if (++va->voicedRun >= kOnsetFrames) va->hangover = kHangoverFrames;
  } else {
    va->voicedRun = 0;
    if (va->hangover > 0) {
      --va->hangover;
      probability = std::max(probability, kHangoverProbability);
    }
  }
  return probability;
}
