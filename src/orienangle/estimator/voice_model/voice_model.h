// The voice model's frame step with a chosen network: rnnoise_process_frame
// runs it with the fitted weights; the tools that fit and measure the network
// run it with their own and read the network's inputs back.
#pragma once

#include "orienangle/estimator/voice_model/rnnoise.h"
#include "orienangle/estimator/voice_model/voice_activity.h"

struct VoiceFrameTrace {
  bool analysed;  // false for a silent frame: no inputs, the last gains repeated
  float inputs[voice::kActivityInputs];
};

// As rnnoise_process_frame, with `net`; fills `trace` when it is not null.
float voiceModelProcess(DenoiseState *st, const VoiceNetwork &net, float *out, const float *in,
                        VoiceFrameTrace *trace);
