#include "bench_workload.h"

#include <cmath>

#include "orienangle/estimator/angle_pipeline.h"
#include "sim/noise.h"
#include "sim/plane_wave.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"

namespace {
constexpr int kRate = 48000;
constexpr double kTalkerDbfs = -30.0;
constexpr double kReferenceDbfs = -70.0;  // idle line-in: a little hiss

double dbToPower(double db) { return std::pow(10.0, db / 10.0); }

// Full-scale floats to 16-bit sample values, as the capture path converts them.
float quantised(float fullScale) { return static_cast<float>(floatToS16(fullScale)); }
}  // namespace

BenchRecording::BenchRecording(double seconds, double thetaDeg, double snrDb, uint32_t seed) {
  std::vector<float> talker = makeVoicedSpeech(seconds, kRate, seed);
  const double k = std::sqrt(dbToPower(kTalkerDbfs) / activePower(talker, kRate));
  for (float &v : talker) v = static_cast<float>(v * k);

  frames_ = talker.size() / ORIEN_FRAME_SIZE;
  const size_t n = frames_ * ORIEN_FRAME_SIZE;
  std::vector<float> planes(ORIEN_MIC_NUM * talker.size());
  planeWaveRender(talker.data(), talker.size(), thetaDeg, planes.data());

  const double noiseScale = std::sqrt(dbToPower(kTalkerDbfs - snrDb));
  mics_.resize(frames_ * kFrameFloats);
  for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
    const std::vector<float> noise = makeNoise(NoiseColour::Pink, n, seed * 16 + m);
    for (size_t i = 0; i < n; ++i) {
      const float v = planes[m * talker.size() + i] + static_cast<float>(noiseScale * noise[i]);
      const size_t f = i / ORIEN_FRAME_SIZE, j = i % ORIEN_FRAME_SIZE;
      mics_[f * kFrameFloats + m * ORIEN_FRAME_SIZE + j] = quantised(v);
    }
  }

  const std::vector<float> hiss = makeNoise(NoiseColour::White, n, seed * 16 + 15);
  reference_.resize(n);
  const double hissScale = std::sqrt(dbToPower(kReferenceDbfs));
  for (size_t i = 0; i < n; ++i) reference_[i] = quantised(static_cast<float>(hissScale * hiss[i]));
}

OrienAngleEstimator *benchWarmEstimator(const BenchRecording &rec, size_t frames) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  uint8_t angle = 0, aux = 0;
  for (size_t i = 0; i < frames; ++i)
    angleFrameProcess(est, rec.frame(i), rec.frame(i), rec.reference(i), &angle, &aux);
  return est;
}

void benchOpenAllBins(OrienAngleEstimator *est) {
  for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS; ++k) {
    est->micNoise.binNoise[k] = NOISE_BIN_FLOOR_F;
    est->binPowerSmooth[k] = 0.0f;
  }
}

void benchSelectAllBins(OrienAngleEstimator *est) {
  est->binSelectedCount = 0;
  for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS; ++k) {
    est->binSelected[k] = 1;
    ++est->binSelectedCount;
  }
}
