#include "sim/resample.h"

#include <cmath>
#include <cstdint>
#include <numeric>

namespace {
constexpr double kPi = 3.141592653589793;
constexpr int kZeroCrossings = 32;      // kernel half-width in zero crossings of the sinc
constexpr double kPassFraction = 0.95;  // cutoff as a fraction of the lower Nyquist frequency
constexpr double kKaiserBeta = 8.6;     // about 80 dB side-lobe rejection
constexpr int64_t kMaxTableEntries = 1 << 22;  // beyond this, kernel values are computed per sample

double besselI0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; k < 50; ++k) {
    term *= (x / (2.0 * k)) * (x / (2.0 * k));
    sum += term;
    if (term < 1e-12 * sum) break;
  }
  return sum;
}

struct Kernel {
  double cutoff;  // relative to the input Nyquist frequency
  int halfWidth;  // taps on each side, in input samples
  double norm;    // 1 / I0(beta)

  double at(double x) const {  // x in input samples from the output instant
    const double r = x / halfWidth;
    if (r <= -1.0 || r >= 1.0) return 0.0;
    const double u = cutoff * x;
    const double sinc = u == 0.0 ? 1.0 : std::sin(kPi * u) / (kPi * u);
    return cutoff * sinc * besselI0(kKaiserBeta * std::sqrt(1.0 - r * r)) * norm;
  }
};
}  // namespace

std::vector<float> resample(const std::vector<float> &in, int inRate, int outRate) {
  if (inRate == outRate || in.empty()) return in;
  const int64_t g = std::gcd(inRate, outRate);
  const int64_t up = outRate / g, down = inRate / g;  // output n sits at input time n * down / up
  Kernel kernel;
  kernel.cutoff = kPassFraction * std::min(1.0, static_cast<double>(outRate) / inRate);
  kernel.halfWidth = static_cast<int>(std::ceil(kZeroCrossings / kernel.cutoff));
  kernel.norm = 1.0 / besselI0(kKaiserBeta);
  const int taps = 2 * kernel.halfWidth;

  // Tap j of phase p weighs input sample i + j - halfWidth + 1 for the output
  // at input time i + p / up.
  std::vector<float> table;
  const bool useTable = up * taps <= kMaxTableEntries;
  if (useTable) {
    table.resize(static_cast<size_t>(up * taps));
    for (int64_t p = 0; p < up; ++p)
      for (int j = 0; j < taps; ++j)
        table[p * taps + j] =
            static_cast<float>(kernel.at(j - kernel.halfWidth + 1 - static_cast<double>(p) / up));
  }

  const int64_t inCount = static_cast<int64_t>(in.size());
  const int64_t outCount = (inCount * up + down - 1) / down;
  std::vector<float> out(static_cast<size_t>(outCount));
  std::vector<float> weights(taps);
  for (int64_t n = 0; n < outCount; ++n) {
    const int64_t i = n * down / up;
    const int64_t phase = n * down % up;
    const float *w = nullptr;
    if (useTable) {
      w = &table[phase * taps];
    } else {
      for (int j = 0; j < taps; ++j)
        weights[j] = static_cast<float>(
            kernel.at(j - kernel.halfWidth + 1 - static_cast<double>(phase) / up));
      w = weights.data();
    }
    double acc = 0.0;
    const int64_t first = i - kernel.halfWidth + 1;
    for (int j = 0; j < taps; ++j) {
      const int64_t k = first + j;
      if (k >= 0 && k < inCount) acc += static_cast<double>(w[j]) * in[k];
    }
    out[n] = static_cast<float>(acc);
  }
  return out;
}
