// The voice model's four calls, with the signatures of the RNNoise library so
// that such a library can replace qv_voice_model at link time.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct DenoiseState DenoiseState;
typedef struct RNNModel RNNModel;

int rnnoise_get_size(void);
int rnnoise_init(DenoiseState *st, RNNModel *model);  // zero-fills the state
DenoiseState *rnnoise_create(RNNModel *model);        // null model: the built-in one
void rnnoise_destroy(DenoiseState *st);
// 480 samples at 16-bit scale in; 22 band gains out; returns the voice probability.
float rnnoise_process_frame(DenoiseState *st, float *out, const float *in);

#ifdef __cplusplus
}
#endif
