// Voice activity of the voice model: a likelihood-ratio test between "noise
// only" and "speech plus noise" per band, averaged over the speech bands,
// mapped to a probability and held over short pauses by a hangover.
#pragma once
#include <cstdint>

#include "orienangle/estimator/voice_model/voice_model_config.h"

struct VoiceActivity {
  int32_t voicedRun;     // consecutive frames with probability above 0.5
  int32_t hangover;      // frames the probability is still held up
  float meanLogRatio;    // this frame's test statistic (for inspection)
};

// Returns the voice probability of this frame, 0..1.
float voiceActivityUpdate(VoiceActivity *va, const float prioriSnr[voice::kBands],
                          const float posterioriSnr[voice::kBands]);
