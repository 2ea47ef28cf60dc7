// The four rnnoise_* calls on top of the voice model's stages.
#include <cstdlib>
#include <cstring>

#include "orienangle/estimator/voice_model/voice_model.h"
#include "orienangle/estimator/voice_model/voice_state.h"

using namespace voice;

int rnnoise_get_size(void) { return static_cast<int>(sizeof(DenoiseState)); }

int rnnoise_init(DenoiseState *st, RNNModel *) {
  memset(st, 0, sizeof *st);
  return 0;
}

DenoiseState *rnnoise_create(RNNModel *) {
  return static_cast<DenoiseState *>(calloc(1, sizeof(DenoiseState)));
}

void rnnoise_destroy(DenoiseState *st) { free(st); }

float voiceModelProcess(DenoiseState *st, const VoiceNetwork &net, float *out, const float *in,
                        VoiceFrameTrace *trace) {
  if (trace) trace->analysed = false;
  if (!st->analysis.ready && bandAnalysisPrepare(&st->analysis) != 0) {
    memcpy(out, st->gain.lastGain, sizeof st->gain.lastGain);
    return 0.0f;
  }
  if (frameMeanSquare(in) < kSilentMeanSquare) {
    bandAnalysisSkip(&st->analysis, in);
    memcpy(out, st->gain.lastGain, sizeof st->gain.lastGain);
    return 0.0f;
  }
  float bandEnergy[kBands];
  float input[kActivityInputs];
  bandAnalysisRun(&st->analysis, in, bandEnergy);
  bandNoiseUpdate(&st->noise, bandEnergy);
  voiceActivityInputs(&st->activity, bandEnergy, st->noise.floor, input);
  const float probability = voiceNetworkProbability(net, input);
  bandGainUpdate(&st->gain, bandEnergy, st->noise.floor, probability > 0.5f, out);
  if (trace) {
    trace->analysed = true;
    memcpy(trace->inputs, input, sizeof input);
  }
  return probability;
}

float rnnoise_process_frame(DenoiseState *st, float *out, const float *in) {
  return voiceModelProcess(st, voiceNetworkFitted(), out, in, nullptr);
}
