// The PC's fast transform: KISS FFT's real-input transform (a 2048-point
// complex transform plus one split pass), about half the work of the complex
// 4096-point transform of the same block.
#include <kiss_fftr.h>

#include <cstdlib>

#include "orienangle/estimator/real_transform.h"

struct RealTransformPlan {
  kiss_fftr_cfg fft;
  kiss_fft_cpx freq[ORIEN_SPECTRUM_BINS];
};

RealTransformPlan *realTransformCreate() {
  auto *plan = static_cast<RealTransformPlan *>(std::malloc(sizeof(RealTransformPlan)));
  if (plan == nullptr) return nullptr;
  plan->fft = kiss_fftr_alloc(ORIEN_FFT_SIZE, 0, nullptr, nullptr);
  if (plan->fft == nullptr) {
    std::free(plan);
    return nullptr;
  }
  return plan;
}

void realTransformDestroy(RealTransformPlan *plan) {
  if (plan == nullptr) return;
  kiss_fftr_free(plan->fft);
  std::free(plan);
}

void realTransformRun(RealTransformPlan *plan, float *in, OrienComplex *out, int bins) {
  kiss_fftr(plan->fft, in, plan->freq);
  for (int k = 0; k < bins; ++k) {
    out[k].re = plan->freq[k].r * ORIEN_FFT_SCALE;
    out[k].im = plan->freq[k].i * ORIEN_FFT_SCALE;
  }
}
