#include "voice-reference/voice_network_fit.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "orienangle/estimator/voice_model/voice_model.h"

using namespace voice;

namespace {
constexpr int kHalf = 480;
constexpr int kInputs = kActivityInputs;
constexpr int kUnits = kHiddenUnits;

struct Sample {
  float x[kInputs];
  float target;
  float weight;
};

// Every analysed half frame of every recording, with its target and weight.
// The inputs do not depend on the network the model runs with.
std::vector<Sample> samplesOf(const std::vector<VoiceRecording> &recordings, double noiseWeight) {
  std::vector<Sample> samples;
  VoiceFrameTrace trace;
  float gains[kBands];
  for (const VoiceRecording &rec : recordings) {
    DenoiseState *st = rnnoise_create(nullptr);
    const size_t leadHalves = 2 * static_cast<size_t>(voiceLeadFrames(rec.recipe));
    for (size_t h = 0; h < rec.referenceHalves.size() && (h + 1) * kHalf <= rec.mic0.size(); ++h) {
      voiceModelProcess(st, voiceNetworkFitted(), gains, &rec.mic0[h * kHalf], &trace);
      if (!trace.analysed) continue;
      Sample s;
      std::copy(trace.inputs, trace.inputs + kInputs, s.x);
      s.target = rec.referenceHalves[h] ? 1.0f : 0.0f;
      const bool noiseOnly = rec.recipe.noiseOnly || h < leadHalves;
      s.weight = noiseOnly && !rec.referenceHalves[h] ? static_cast<float>(noiseWeight) : 1.0f;
      samples.push_back(s);
    }
    rnnoise_destroy(st);
  }
  double sum = 0;
  for (const Sample &s : samples) sum += s.weight;
  for (Sample &s : samples) s.weight = static_cast<float>(s.weight * samples.size() / sum);
  return samples;
}

// The network in double precision with its Adam moments.
struct Parameters {
  std::vector<double> value, m, v;
  explicit Parameters(size_t n) : value(n), m(n), v(n) {}
};

// Layout of the parameter vector.
constexpr int kHiddenWeightsAt = 0;
constexpr int kHiddenBiasAt = kInputs * kUnits;
constexpr int kOutputWeightsAt = kHiddenBiasAt + kUnits;
constexpr int kOutputBiasAt = kOutputWeightsAt + kUnits;
constexpr int kParameterCount = kOutputBiasAt + 1;

// Mean weighted cross-entropy gradient over a batch of samples into `grad`.
void gradient(const std::vector<Sample> &samples, const uint32_t *batch, size_t count,
              const std::vector<double> &p, std::vector<double> &grad) {
  std::fill(grad.begin(), grad.end(), 0.0);
  double unit[kUnits], dUnit[kUnits];
  const double scale = 1.0 / static_cast<double>(count);
  for (size_t k = 0; k < count; ++k) {
    const Sample &s = samples[batch[k]];
    for (int h = 0; h < kUnits; ++h) unit[h] = p[kHiddenBiasAt + h];
    for (int i = 0; i < kInputs; ++i) {
      const double x = s.x[i];
      const double *w = &p[kHiddenWeightsAt + i * kUnits];
      for (int h = 0; h < kUnits; ++h) unit[h] += x * w[h];
    }
    double z = p[kOutputBiasAt];
    for (int h = 0; h < kUnits; ++h) {
      unit[h] = std::tanh(unit[h]);
      z += p[kOutputWeightsAt + h] * unit[h];
    }
    const double prob = 1.0 / (1.0 + std::exp(-std::clamp(z, -30.0, 30.0)));
    const double dz = s.weight * (prob - s.target) * scale;
    grad[kOutputBiasAt] += dz;
    for (int h = 0; h < kUnits; ++h) {
      grad[kOutputWeightsAt + h] += dz * unit[h];
      dUnit[h] = dz * p[kOutputWeightsAt + h] * (1.0 - unit[h] * unit[h]);
      grad[kHiddenBiasAt + h] += dUnit[h];
    }
    for (int i = 0; i < kInputs; ++i) {
      const double x = s.x[i];
      double *g = &grad[kHiddenWeightsAt + i * kUnits];
      for (int h = 0; h < kUnits; ++h) g[h] += x * dUnit[h];
    }
  }
}
}  // namespace

VoiceNetwork voiceNetworkFit(const std::vector<VoiceRecording> &recordings,
                             const VoiceFitOptions &options) {
  const std::vector<Sample> samples = samplesOf(recordings, options.noiseOnlyWeight);
  Parameters p(kParameterCount);
  std::mt19937 rng(options.seed);
  std::normal_distribution<double> hidden(0.0, 1.0 / std::sqrt(double(kInputs)));
  std::normal_distribution<double> output(0.0, 1.0 / std::sqrt(double(kUnits)));
  for (int i = kHiddenWeightsAt; i < kHiddenBiasAt; ++i) p.value[i] = hidden(rng);
  for (int i = kOutputWeightsAt; i < kOutputBiasAt; ++i) p.value[i] = output(rng);

  // Adam on shuffled mini-batches, the step size falling linearly to zero.
  std::vector<double> grad(kParameterCount);
  std::vector<uint32_t> order(samples.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<uint32_t>(i);
  const size_t batches = (samples.size() + options.batchSize - 1) / options.batchSize;
  const double totalSteps = static_cast<double>(batches) * options.epochs;
  const double beta1 = 0.9, beta2 = 0.999;
  int step = 0;
  for (int epoch = 0; epoch < options.epochs; ++epoch) {
    std::shuffle(order.begin(), order.end(), rng);
    for (size_t b = 0; b < batches; ++b) {
      const size_t first = b * options.batchSize;
      gradient(samples, &order[first], std::min(options.batchSize, samples.size() - first), p.value,
               grad);
      ++step;
      const double rate = options.learningRate * (1.0 - (step - 1) / totalSteps);
      const double c1 = 1.0 - std::pow(beta1, step), c2 = 1.0 - std::pow(beta2, step);
      for (int i = 0; i < kParameterCount; ++i) {
        const bool isWeight = i < kHiddenBiasAt || (i >= kOutputWeightsAt && i < kOutputBiasAt);
        const double g = grad[i] + (isWeight ? options.weightDecay * p.value[i] : 0.0);
        p.m[i] = beta1 * p.m[i] + (1 - beta1) * g;
        p.v[i] = beta2 * p.v[i] + (1 - beta2) * g * g;
        p.value[i] -= rate * (p.m[i] / c1) / (std::sqrt(p.v[i] / c2) + 1e-8);
      }
    }
  }

  VoiceNetwork net{};
  for (int i = 0; i < kInputs; ++i)
    for (int h = 0; h < kUnits; ++h)
      net.hiddenWeights[i][h] = static_cast<float>(p.value[kHiddenWeightsAt + i * kUnits + h]);
  for (int h = 0; h < kUnits; ++h) {
    net.hiddenBias[h] = static_cast<float>(p.value[kHiddenBiasAt + h]);
    net.outputWeights[h] = static_cast<float>(p.value[kOutputWeightsAt + h]);
  }
  net.outputBias = static_cast<float>(p.value[kOutputBiasAt]);
  return net;
}

void voiceNetworkWrite(const VoiceNetwork &net, FILE *out) {
  auto list = [out](const float *v, int n) {
    for (int i = 0; i < n; ++i) fprintf(out, "%s%.9gf", i ? ", " : "", v[i]);
  };
  fprintf(out,
          "// Weights of the voice activity network (voice_activity.cpp), written by\n"
          "// quenvarile-voice-fit from the calibration set of tools/voice-reference.\n"
          "// Regenerate them with tools/voice-reference/refit; do not edit by hand.\n"
          "#pragma once\n\n"
          "#include \"orienangle/estimator/voice_model/voice_activity.h\"\n\n"
          "constexpr VoiceNetwork kFittedNetwork = {\n    {\n");
  for (int i = 0; i < kInputs; ++i) {
    fprintf(out, "        {");
    list(net.hiddenWeights[i], kUnits);
    fprintf(out, "},\n");
  }
  fprintf(out, "    },\n    {");
  list(net.hiddenBias, kUnits);
  fprintf(out, "},\n    {");
  list(net.outputWeights, kUnits);
  fprintf(out, "},\n    %.9gf};\n", net.outputBias);
}
