#include "orienangle/estimator/spectrum.h"

#include <kiss_fft.h>

#include <cmath>
#include <cstring>

#include "orienangle/estimator/real_transform.h"

const int16_t ORIEN_BAND_EDGE[ORIEN_BAND_EDGES] = {20,  36,  52,  68,  84,  100, 118, 136, 156, 178,
                                                   202, 230, 262, 298, 338, 382, 430, 462, 518};

namespace {

constexpr double kHalfPi = 1.5707963;     // pi / 2 as written in the window formulas
constexpr double kSqrtHalf = 0.70710678;  // sqrt(1/2), DC column of the cosine table
constexpr double kLongWindowGain = 1.25;

struct SharedPlans {
  kiss_fft_cfg fft4096;
  kiss_fft_cfg fft1920;
  SpectrumSharedTables tables;
};

// Built once, on first use, and kept until the process ends (never freed).
SharedPlans *buildSharedPlans() {
  static SharedPlans plans;
  plans.fft4096 = kiss_fft_alloc(ORIEN_FFT_SIZE, 0, nullptr, nullptr);
  plans.fft1920 = kiss_fft_alloc(ORIEN_AUX_FFT_SIZE, 0, nullptr, nullptr);
  SpectrumSharedTables &t = plans.tables;
  for (int i = 0; i < ORIEN_AUX_FFT_SIZE; ++i) {
    double s = std::sin((i + 0.5) * kHalfPi / ORIEN_AUX_FFT_SIZE);
    double w = std::sin(kHalfPi * s * s);
    t.longWindow[i] = static_cast<float>(w * w / kLongWindowGain);
  }
  for (int i = 0; i < ORIEN_AUX_WINDOW; ++i) {
    double s = std::sin((i + 0.5) * kHalfPi / ORIEN_AUX_WINDOW);
    t.shortWindow[i] = static_cast<float>(std::sin(kHalfPi * s * s));
  }
  for (int i = 0; i < ORIEN_DCT_SIZE; ++i) {
    for (int j = 0; j < ORIEN_DCT_SIZE; ++j) {
      double c = std::cos((i + 0.5) * j * ORIEN_PI / ORIEN_DCT_SIZE);
      if (j == 0) c *= kSqrtHalf;
      t.cosineTable[i * ORIEN_DCT_SIZE + j] = static_cast<float>(c);
    }
  }
  return &plans;
}

SharedPlans &sharedPlans() {
  static SharedPlans *plans = buildSharedPlans();
  return *plans;
}

}  // namespace

void spectrumTransform(OrienComplex *out, const float *in) {
  kiss_fft_cfg plan = sharedPlans().fft4096;
  kiss_fft_cpx time[ORIEN_FFT_SIZE];
  kiss_fft_cpx freq[ORIEN_FFT_SIZE];
  for (int n = 0; n < ORIEN_FFT_SIZE; ++n) {
    time[n].r = in[n];
    time[n].i = 0.0f;
  }
  kiss_fft(plan, time, freq);
  // 1/4096 is a power of two: scaling after the butterflies gives the same floats
  // as scaling the input first.
  for (int k = 0; k < ORIEN_SPECTRUM_BINS; ++k) {
    out[k].re = freq[k].r * ORIEN_FFT_SCALE;
    out[k].im = freq[k].i * ORIEN_FFT_SCALE;
  }
}

void spectrumAnalyseBlock(RealTransformPlan *plan, float *history, const float *newSamples,
                          OrienComplex *out) {
  alignas(16) float block[ORIEN_FFT_SIZE];  // 16: for the vector transforms
  std::memcpy(block, history, sizeof(float) * ORIEN_HISTORY);
  std::memcpy(block + ORIEN_HISTORY, newSamples, sizeof(float) * ORIEN_FRAME_SIZE);
  std::memset(block + ORIEN_BLOCK_LIVE, 0, sizeof(float) * (ORIEN_FFT_SIZE - ORIEN_BLOCK_LIVE));
  std::memcpy(history, block + ORIEN_FRAME_SIZE, sizeof(float) * ORIEN_HISTORY);
  if (plan != nullptr)
    realTransformRun(plan, block, out, ORIEN_BINS);
  else
    spectrumTransform(out, block);
}

void bandEnergies(float *out, const OrienComplex *spectrum) {
  for (int b = 0; b < ORIEN_BANDS; ++b) out[b] = 0.0f;
  for (int b = 0; b < ORIEN_LIVE_BANDS; ++b) {
    float sum = 0.0f;  // single precision, increasing bin order
    for (int k = ORIEN_BAND_EDGE[b]; k < ORIEN_BAND_EDGE[b + 1]; ++k)
      sum += spectrum[k].re * spectrum[k].re + spectrum[k].im * spectrum[k].im;
    out[b] = sum;
  }
}
