// Fits the voice activity network to the reference's decisions on the
// calibration recordings: the inputs come from the voice model's own stages,
// the target of each analysed 10 ms half frame is the reference's decision.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "orienangle/estimator/voice_model/voice_activity.h"
#include "voice-reference/voice_agreement.h"

struct VoiceFitOptions {
  int epochs = 1000;             // passes over the samples
  size_t batchSize = 256;        // samples per Adam step
  double learningRate = 0.003;   // at the start; it falls linearly to zero
  double weightDecay = 1e-4;     // L2 on the weights (not the biases)
  double noiseOnlyWeight = 1.5;  // weight of no-voice targets on noise-only material
  uint32_t seed = 1;             // initial weights
};

VoiceNetwork voiceNetworkFit(const std::vector<VoiceRecording> &recordings,
                             const VoiceFitOptions &options);

// Writes `net` as the C++ header the voice model is built with.
void voiceNetworkWrite(const VoiceNetwork &net, FILE *out);
