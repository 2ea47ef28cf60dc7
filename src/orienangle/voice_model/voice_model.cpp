#include "orienangle/voice_model/rnnoise.h"

#include <cstdlib>
#include <cstring>

// Placeholder bodies, replaced by the voice model.
struct DenoiseState { float lastGain[22]; };
int rnnoise_get_size(void) { return sizeof(DenoiseState); }
int rnnoise_init(DenoiseState *st, RNNModel *) { memset(st, 0, sizeof *st); return 0; }
DenoiseState *rnnoise_create(RNNModel *) { return static_cast<DenoiseState *>(calloc(1, sizeof(DenoiseState))); }
void rnnoise_destroy(DenoiseState *st) { free(st); }
float rnnoise_process_frame(DenoiseState *st, float *out, const float *) {
  memcpy(out, st->lastGain, sizeof st->lastGain);
  return 0.0f;
}
