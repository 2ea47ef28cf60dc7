// Benchmarks of the direction estimator, stage by stage, on simulated speech.
//
// Every per-frame benchmark reports `budget`: its time as a fraction of the
// 20 ms a frame lasts (the board must finish a frame well within it).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>

#include "bench_workload.h"
#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/far_end_detector.h"
#include "orienangle/estimator/frame_analysis.h"
#include "orienangle/estimator/spatial_scan.h"
#include "orienangle/estimator/steering.h"
#include "orienangle/estimator/voice_model/rnnoise.h"

namespace {

constexpr double kFrameSeconds = 0.020;
constexpr double kSeconds = 6.0;  // recording cycled through by the frame benchmarks
constexpr double kTalkerDegrees = 30.0;
constexpr double kSnrDb = 20.0;
constexpr size_t kWarmFrames = 150;  // settles trackers and smoothed powers

const BenchRecording &recording() {
  static const BenchRecording rec(kSeconds, kTalkerDegrees, kSnrDb, 1);
  return rec;
}

struct EstimatorDeleter {
  void operator()(OrienAngleEstimator *est) const { orienAngleEstimatorDestroy(est); }
};
using EstimatorPtr = std::unique_ptr<OrienAngleEstimator, EstimatorDeleter>;

EstimatorPtr warmEstimator() { return EstimatorPtr(benchWarmEstimator(recording(), kWarmFrames)); }

void reportBudget(benchmark::State &state) {
  state.counters["budget"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * kFrameSeconds,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The whole pipeline as the worker runs it, frame after frame of speech.
void BM_FrameTypical(benchmark::State &state) {
  const BenchRecording &rec = recording();
  EstimatorPtr est = warmEstimator();
  size_t i = kWarmFrames;
  uint8_t angle = 0, aux = 0;
  for (auto _ : state) {
    angleFrameProcess(est.get(), rec.frame(i), rec.frame(i), rec.reference(i), &angle, &aux);
    ++i;
  }
  benchmark::DoNotOptimize(angle);
  reportBudget(state);
}

// The whole pipeline with every bin 20..499 selected, so that the scan runs
// over all 480 bins on every frame.
void BM_FrameWorstCase(benchmark::State &state) {
  const BenchRecording &rec = recording();
  EstimatorPtr est = warmEstimator();
  size_t i = kWarmFrames;
  uint8_t angle = 0, aux = 0;
  int64_t selected = 0;
  for (auto _ : state) {
    benchOpenAllBins(est.get());
    angleFrameProcess(est.get(), rec.frame(i), rec.frame(i), rec.reference(i), &angle, &aux);
    selected += est->binSelectedCount;
    ++i;
  }
  state.counters["bins"] = static_cast<double>(selected) / static_cast<double>(state.iterations());
  reportBudget(state);
}

template <int (*Scan)(OrienAngleEstimator *, const OrienComplex (*)[ORIEN_SPECTRUM_BINS])>
void scanBenchmark(benchmark::State &state) {
  EstimatorPtr est = warmEstimator();
  benchSelectAllBins(est.get());
  if (orienAngleEstimatorUseReferenceArithmetic(est.get()) != 0) return;  // the plain scan's table
  for (auto _ : state) {
    benchmark::DoNotOptimize(Scan(est.get(), est->scratch.spectra));
    benchmark::ClobberMemory();
  }
  reportBudget(state);
}
// The spatial scan alone, all 480 bins selected: the optimized and the plain scan.
void BM_Scan(benchmark::State &state) { scanBenchmark<spatialSpectrumScan>(state); }
void BM_ScanReference(benchmark::State &state) {
  scanBenchmark<spatialSpectrumScanReference>(state);
}

// The 9 transforms of a frame: 8 microphones and the loudspeaker reference.
void BM_Transforms(benchmark::State &state) {
  const BenchRecording &rec = recording();
  EstimatorPtr est = warmEstimator();
  size_t i = kWarmFrames;
  for (auto _ : state) {
    const float *frame = rec.frame(i);
    for (int m = 0; m < ORIEN_MIC_NUM; ++m)
      spectrumAnalyseBlock(est->transformPlan, est->micHistory[m], frame + m * ORIEN_FRAME_SIZE,
                           est->scratch.spectra[m]);
    spectrumAnalyseBlock(est->transformPlan, est->farEnd.refHistory, rec.reference(i),
                         est->scratch.refSpectrum);
    benchmark::ClobberMemory();
    ++i;
  }
  reportBudget(state);
}

// The spectral front end: the 8 microphone transforms, band and bin powers,
// the noise tracker and the speech decision.
void BM_FrontEnd(benchmark::State &state) {
  const BenchRecording &rec = recording();
  EstimatorPtr est = warmEstimator();
  size_t i = kWarmFrames;
  for (auto _ : state) {
    orienAngleFrameAnalyse(est.get(), rec.frame(i), est->scratch.frontEnd, est->scratch.spectra);
    ++i;
  }
  reportBudget(state);
}

// The loudspeaker detector: one transform and its noise tracker.
void BM_FarEndDetector(benchmark::State &state) {
  const BenchRecording &rec = recording();
  EstimatorPtr est = warmEstimator();
  size_t i = kWarmFrames;
  for (auto _ : state) {
    farEndDetect(est.get(), rec.reference(i));
    ++i;
  }
  reportBudget(state);
}

// The voice model on microphone 0: two rnnoise_process_frame calls per frame.
void BM_VoiceModel(benchmark::State &state) {
  const BenchRecording &rec = recording();
  EstimatorPtr est = warmEstimator();
  float gains[PIPE_DENOISE_BLOCK];
  size_t i = kWarmFrames;
  for (auto _ : state) {
    const float *mic0 = rec.frame(i);
    benchmark::DoNotOptimize(rnnoise_process_frame(est->denoiser, gains, mic0));
    benchmark::DoNotOptimize(
        rnnoise_process_frame(est->denoiser, gains, mic0 + PIPE_DENOISE_BLOCK));
    ++i;
  }
  reportBudget(state);
}

// Creation of the estimator record (steering table included) and its release.
void BM_EstimatorCreate(benchmark::State &state) {
  for (auto _ : state) {
    OrienAngleEstimator *est = orienAngleEstimatorCreate();
    benchmark::DoNotOptimize(est);
    orienAngleEstimatorDestroy(est);
  }
}

template <typename Table, void (*Build)(Table *)>
void steeringBenchmark(benchmark::State &state) {
  auto table = std::make_unique<Table>();
  for (auto _ : state) {
    Build(table.get());
    benchmark::ClobberMemory();
  }
}
// The steering tables alone: the scan's quarter (what creation builds) and the
// full reference table.
void BM_SteeringBuild(benchmark::State &state) {
  steeringBenchmark<SteeringScanTable, steeringScanBuild>(state);
}
void BM_SteeringBuildReference(benchmark::State &state) {
  steeringBenchmark<SteeringTable, steeringBuildReference>(state);
}

}  // namespace

BENCHMARK(BM_FrameTypical)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FrameWorstCase)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Scan)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ScanReference)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Transforms)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FrontEnd)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FarEndDetector)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_VoiceModel)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EstimatorCreate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SteeringBuild)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SteeringBuildReference)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
