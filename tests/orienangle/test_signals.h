// Signals and helpers shared by the estimator tests.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "orienangle/estimator/estimator.h"
#include "sim/noise.h"
#include "sim/plane_wave.h"

namespace testsig {

// White Gaussian noise of RMS `amplitude`, reproducible from the seed.
inline std::vector<float> noise(size_t n, float amplitude, uint32_t seed) {
  std::vector<float> v = makeNoise(NoiseColour::White, n, seed);
  for (auto &x : v) x *= amplitude;
  return v;
}

// Noise that never comes near zero: |x| >= 2 everywhere, so no frame of it is
// digital silence.
inline std::vector<float> noiseAwayFromZero(size_t n, float amplitude, uint32_t seed) {
  std::vector<float> v = noise(n, amplitude, seed);
  for (auto &x : v) x = x < 0.0f ? x - 2.0f : x + 2.0f;
  return v;
}

// Frame f (8 planes of 960) out of 8 planes of n samples each.
inline void frameOf(const std::vector<float> &planes, size_t n, size_t f, float *out) {
  for (int m = 0; m < ORIEN_MIC_NUM; ++m)
    std::memcpy(out + m * ORIEN_FRAME_SIZE, planes.data() + m * n + f * ORIEN_FRAME_SIZE,
                sizeof(float) * ORIEN_FRAME_SIZE);
}

// The 8 microphone planes of src played from thetaDeg.
inline std::vector<float> arrayFrom(const std::vector<float> &src, double thetaDeg) {
  std::vector<float> out(ORIEN_MIC_NUM * src.size());
  planeWaveRender(src.data(), src.size(), thetaDeg, out.data());
  return out;
}

}  // namespace testsig
