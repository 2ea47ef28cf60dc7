#include "sim/noise.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {
constexpr double kBlockSeconds = 0.02;
constexpr double kActiveRangeDb = 40.0;

// 1/f shaping by a sum of first-order low-pass sections with poles spread
// over the audio band (Paul Kellet's economy coefficients), good to about
// +-0.5 dB above 10 Hz at 48 kHz.
struct PinkFilter {
  double b[7] = {};
  double step(double white) {
    b[0] = 0.99886 * b[0] + white * 0.0555179;
    b[1] = 0.99332 * b[1] + white * 0.0750759;
    b[2] = 0.96900 * b[2] + white * 0.1538520;
    b[3] = 0.86650 * b[3] + white * 0.3104856;
    b[4] = 0.55000 * b[4] + white * 0.5329522;
    b[5] = -0.7616 * b[5] - white * 0.0168980;
    const double pink = b[0] + b[1] + b[2] + b[3] + b[4] + b[5] + b[6] + white * 0.5362;
    b[6] = white * 0.115926;
    return pink;
  }
};
}  // namespace

std::vector<float> makeNoise(NoiseColour colour, size_t count, uint32_t seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::vector<float> out(count);
  PinkFilter pink;
  for (size_t i = 0; i < count; ++i) {
    const double w = gauss(rng);
    out[i] = static_cast<float>(colour == NoiseColour::White ? w : pink.step(w));
  }
  if (colour == NoiseColour::Pink && count > 0) {
    const double scale = 1.0 / std::sqrt(std::max(meanPower(out), 1e-30));
    for (float &x : out) x = static_cast<float>(x * scale);
  }
  return out;
}

double meanPower(const std::vector<float> &signal) {
  if (signal.empty()) return 0.0;
  double sum = 0.0;
  for (float x : signal) sum += static_cast<double>(x) * x;
  return sum / signal.size();
}

double activePower(const std::vector<float> &signal, int sampleRate) {
  const size_t block = std::max<size_t>(1, static_cast<size_t>(sampleRate * kBlockSeconds));
  std::vector<double> blocks;
  for (size_t start = 0; start + block <= signal.size(); start += block) {
    double sum = 0.0;
    for (size_t i = start; i < start + block; ++i)
      sum += static_cast<double>(signal[i]) * signal[i];
    blocks.push_back(sum / block);
  }
  if (blocks.empty()) return meanPower(signal);
  const double loudest = *std::max_element(blocks.begin(), blocks.end());
  const double threshold = loudest * std::pow(10.0, -kActiveRangeDb / 10.0);
  double sum = 0.0;
  size_t active = 0;
  for (double p : blocks)
    if (p >= threshold && p > 0.0) sum += p, ++active;
  return active ? sum / active : 0.0;
}

double noiseScaleForSnr(double signalPower, double noisePower, double snrDb) {
  if (noisePower <= 0.0) return 0.0;
  return std::sqrt(signalPower / noisePower * std::pow(10.0, -snrDb / 10.0));
}
