#include "orienangle/estimator/voice_model/voice_activity.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "orienangle/estimator/voice_model/voice_network_weights.h"
#include "orienangle/estimator/voice_model/voice_vector.h"

using namespace voice;

namespace {
// log10 of a positive finite float to within 1e-5: exponent from the bits, a
// fitted polynomial for the mantissa's log2 (std::log10 costs several times more
// on the board, and this runs 44 times a call).
float log10Approx(float x) {
  uint32_t bits;
  memcpy(&bits, &x, sizeof bits);
  const int exponent = static_cast<int>((bits >> 23) & 0xff) - 127;
  bits = (bits & 0x007fffffu) | 0x3f800000u;
  float mantissa;
  memcpy(&mantissa, &bits, sizeof mantissa);
  const float t = mantissa - 1.0f;
  const float log2Mantissa =
      t *
      (1.4418258f + t * (-0.7086821f + t * (0.41542195f + t * (-0.19442267f + t * 0.04588553f))));
  return (static_cast<float>(exponent) + log2Mantissa) * 0.30103f;
}
}  // namespace

const VoiceNetwork &voiceNetworkFitted() { return kFittedNetwork; }

void voiceActivityInputs(VoiceActivity *va, const float bandEnergy[kBands],
                         const float noiseFloor[kBands], float input[kActivityInputs]) {
  float flux = 0.0f, meanSnr = 0.0f;
  for (int b = 0; b < kBands; ++b) {
    const float snr =
        std::clamp(log10Approx(1.0f + bandEnergy[b] / noiseFloor[b]), 0.0f, kMaxLogSnr);
    va->shortSnr[b] = kShortSnrSmoothing * va->shortSnr[b] + (1.0f - kShortSnrSmoothing) * snr;
    va->longSnr[b] = kLongSnrSmoothing * va->longSnr[b] + (1.0f - kLongSnrSmoothing) * snr;
    input[b] = snr;
    input[kBands + b] = va->shortSnr[b];
    input[2 * kBands + b] = va->longSnr[b];
    input[3 * kBands + b] = kLogEnergyScale * log10Approx(bandEnergy[b] + 1.0f);
    flux += std::fabs(input[3 * kBands + b] - va->lastLogEnergy[b]);
    va->lastLogEnergy[b] = input[3 * kBands + b];
    meanSnr += snr;
  }
  va->meanSnrSlow =
      kSlowSnrSmoothing * va->meanSnrSlow + (1.0f - kSlowSnrSmoothing) * meanSnr * (1.0f / kBands);
  flux *= kFluxScale / kBands;
  va->fluxSmoothed = kFluxSmoothing * va->fluxSmoothed + (1.0f - kFluxSmoothing) * flux;
  input[4 * kBands] = flux;
  input[4 * kBands + 1] = va->fluxSmoothed;
  input[4 * kBands + 2] = va->meanSnrSlow;
  input[4 * kBands + 3] = 1.0f;
}

float voiceNetworkProbability(const VoiceNetwork &net, const float input[kActivityInputs]) {
  // Input by input, four units per vector: the units stay in registers.
  static_assert(kHiddenUnits % 4 == 0, "hidden units come in vectors of four");
  constexpr int kGroups = kHiddenUnits / 4;
  VoiceVec sum[kGroups];
  for (int g = 0; g < kGroups; ++g) sum[g] = voiceLoad(net.hiddenBias + 4 * g);
  for (int i = 0; i < kActivityInputs; ++i) {
    const VoiceVec x = voiceSplat(input[i]);
    for (int g = 0; g < kGroups; ++g)
      sum[g] = voiceMulAdd(sum[g], x, voiceLoad(net.hiddenWeights[i] + 4 * g));
  }
  float unit[kHiddenUnits];
  for (int g = 0; g < kGroups; ++g) voiceStore(unit + 4 * g, sum[g]);
  float z = net.outputBias;
  for (int h = 0; h < kHiddenUnits; ++h) z += net.outputWeights[h] * std::tanh(unit[h]);
  // Clamp the exponent: loud onsets can drive it far out.
  return 1.0f / (1.0f + std::exp(-std::clamp(z, -30.0f, 30.0f)));
}
