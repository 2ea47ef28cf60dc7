// Voice activity of the voice model: a one-hidden-layer network on the bands'
// log SNR (now and smoothed over two spans), their log energy, the spectral
// flux and the slow mean SNR gives the probability that the frame holds voice.
#pragma once

#include "orienangle/estimator/voice_model/voice_model_config.h"

struct VoiceActivity {
  float shortSnr[voice::kBands];       // log10 band SNR smoothed over about 30 ms
  float longSnr[voice::kBands];        // ... and over about 200 ms
  float lastLogEnergy[voice::kBands];  // the last frame's scaled log band energies
  float fluxSmoothed;                  // spectral flux smoothed over about 100 ms
  float meanSnrSlow;                   // log10 SNR averaged over bands and about 1 s
};

// The network's weights: tanh hidden units, a logistic output.
struct VoiceNetwork {
  float hiddenWeights[voice::kActivityInputs][voice::kHiddenUnits];
  float hiddenBias[voice::kHiddenUnits];
  float outputWeights[voice::kHiddenUnits];
  float outputBias;
};

// The fitted weights the model runs with (voice_network_weights.h).
const VoiceNetwork &voiceNetworkFitted();

// Advances the smoothed SNRs by this frame and fills the network's inputs.
void voiceActivityInputs(VoiceActivity *va, const float bandEnergy[voice::kBands],
                         const float noiseFloor[voice::kBands],
                         float input[voice::kActivityInputs]);

// The voice probability, 0..1, of one frame's inputs.
float voiceNetworkProbability(const VoiceNetwork &net, const float input[voice::kActivityInputs]);
