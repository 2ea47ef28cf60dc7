// The board's fast transform: Ne10's NEON real-to-complex transform. Its NEON
// entry point is called directly: ne10_init would pick the plain C version
// wherever /proc/cpuinfo does not list NEON (under qemu-user, for one), and this
// build targets a NEON core anyway (the toolchain's QV_BOARD_NEON).
#include <ne10/NE10_dsp.h>

#include <cstdlib>

#include "orienangle/estimator/real_transform.h"

// NEON loads and stores may carry alignment hints, which fault on misaligned
// addresses: the working storage is 16-byte aligned (and so is each block).
struct RealTransformPlan {
  ne10_fft_r2c_cfg_float32_t fft;
  alignas(16) ne10_fft_cpx_float32_t freq[ORIEN_SPECTRUM_BINS];
};

RealTransformPlan *realTransformCreate() {
  auto *plan = static_cast<RealTransformPlan *>(
      std::aligned_alloc(alignof(RealTransformPlan), sizeof(RealTransformPlan)));
  if (plan == nullptr) return nullptr;
  plan->fft = ne10_fft_alloc_r2c_float32(ORIEN_FFT_SIZE);
  if (plan->fft == nullptr) {
    std::free(plan);
    return nullptr;
  }
  return plan;
}

void realTransformDestroy(RealTransformPlan *plan) {
  if (plan == nullptr) return;
  ne10_fft_destroy_r2c_float32(plan->fft);
  std::free(plan);
}

void realTransformRun(RealTransformPlan *plan, float *in, OrienComplex *out, int bins) {
  ne10_fft_r2c_1d_float32_neon(plan->freq, in, plan->fft);
  for (int k = 0; k < bins; ++k) {
    out[k].re = plan->freq[k].r * ORIEN_FFT_SCALE;
    out[k].im = plan->freq[k].i * ORIEN_FFT_SCALE;
  }
}
