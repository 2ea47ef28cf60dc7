#include "orienangle/estimator/voice_model/voice_activity.h"

#include <algorithm>
#include <cmath>

#include "orienangle/estimator/voice_model/voice_network_weights.h"

using namespace voice;

float voiceActivityUpdate(VoiceActivity *va, const float bandEnergy[kBands], const float noiseFloor[kBands]) {
  float input[kActivityInputs];
  for (int b = 0; b < kBands; ++b) {
    const float snr = std::clamp(std::log10(1.0f + bandEnergy[b] / noiseFloor[b]), 0.0f, kMaxLogSnr);
    va->shortSnr[b] = kShortSnrSmoothing * va->shortSnr[b] + (1.0f - kShortSnrSmoothing) * snr;
    va->longSnr[b] = kLongSnrSmoothing * va->longSnr[b] + (1.0f - kLongSnrSmoothing) * snr;
    input[b] = snr;
    input[kBands + b] = va->shortSnr[b];
    input[2 * kBands + b] = va->longSnr[b];
    input[3 * kBands + b] = kLogEnergyScale * std::log10(bandEnergy[b] + 1.0f);
  }
  input[4 * kBands] = 1.0f;

  float z = kOutputBias;
  for (int h = 0; h < kHiddenUnits; ++h) {
    float unit = kHiddenBias[h];
    for (int i = 0; i < kActivityInputs; ++i) unit += input[i] * kHiddenWeights[i][h];
    z += kOutputWeights[h] * std::tanh(unit);
  }
  // Clamp the exponent: loud onsets can drive it far out.
  return 1.0f / (1.0f + std::exp(-std::clamp(z, -30.0f, 30.0f)));
}
