// qv-stage-instructions STAGE [REPEATS]: runs one stage of the estimator REPEATS
// times on simulated speech, for instruction counting under callgrind
// (scripts/bench-callgrind). Only the repeats are instrumented and counted; the
// recording and the warm-up frames before them run at full speed.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#define CALLGRIND_TOGGLE_COLLECT
#endif

#include "bench_workload.h"
#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/frame_analysis.h"
#include "orienangle/estimator/spatial_scan.h"
#include "orienangle/estimator/steering.h"
#include "orienangle/estimator/voice_model/rnnoise.h"

namespace {

constexpr double kSeconds = 3.0;
constexpr size_t kWarmFrames = 100;

const char kUsage[] =
    "usage: qv-stage-instructions STAGE [REPEATS]\n"
    "stages: frame-typical frame-worst scan scan-reference transforms transforms-reference\n"
    "        front-end voice-model create steering steering-reference\n";

struct Run {
  const BenchRecording *rec;
  OrienAngleEstimator *est;
  size_t frame;
  int sink;
};

using Stage = void (*)(Run *);

void frameTypical(Run *r) {
  uint8_t angle, aux;
  const size_t i = r->frame++;
  angleFrameProcess(r->est, r->rec->frame(i), r->rec->frame(i), r->rec->reference(i), &angle, &aux);
  r->sink += angle;
}
void frameWorst(Run *r) {
  benchOpenAllBins(r->est);
  frameTypical(r);
}
void scan(Run *r) { r->sink += spatialSpectrumScan(r->est, r->est->scratch.spectra); }
void scanReference(Run *r) {
  r->sink += spatialSpectrumScanReference(r->est, r->est->scratch.spectra);
}
// The 9 analysis blocks of a frame through the given plan (null: the reference transform).
void analyseBlocks(Run *r, RealTransformPlan *plan) {
  const size_t i = r->frame++;
  for (int m = 0; m < ORIEN_MIC_NUM; ++m)
    spectrumAnalyseBlock(plan, r->est->micHistory[m], r->rec->frame(i) + m * ORIEN_FRAME_SIZE,
                         r->est->scratch.spectra[m]);
  spectrumAnalyseBlock(plan, r->est->farEnd.refHistory, r->rec->reference(i),
                       r->est->scratch.refSpectrum);
}
void transforms(Run *r) { analyseBlocks(r, r->est->transformPlan); }
void transformsReference(Run *r) { analyseBlocks(r, nullptr); }
void frontEnd(Run *r) {
  const size_t i = r->frame++;
  orienAngleFrameAnalyse(r->est, r->rec->frame(i), r->est->scratch.frontEnd,
                         r->est->scratch.spectra);
}
void voiceModel(Run *r) {
  const float *mic0 = r->rec->frame(r->frame++);
  float gains[PIPE_DENOISE_BLOCK];
  r->sink += rnnoise_process_frame(r->est->denoiser, gains, mic0) > 0.5f;
  r->sink += rnnoise_process_frame(r->est->denoiser, gains, mic0 + PIPE_DENOISE_BLOCK) > 0.5f;
}
void create(Run *r) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  r->sink += est->scanSteering.w[0][0][0][0][0] > 0.0f;
  orienAngleEstimatorDestroy(est);
}
void steering(Run *r) {
  steeringScanBuild(&r->est->scanSteering);
  r->sink += r->est->scanSteering.w[0][0][0][0][0] > 0.0f;
}
void steeringReference(Run *r) {
  auto *table = static_cast<SteeringTable *>(std::malloc(sizeof(SteeringTable)));
  steeringBuildReference(table);
  r->sink += table->w[0][1][0].re > 0.0f;
  std::free(table);
}

struct NamedStage {
  const char *name;
  Stage run;
  bool allBins;  // every bin selected before the repeats
};
const NamedStage kStages[] = {
    {"frame-typical", frameTypical, false},
    {"frame-worst", frameWorst, false},
    {"scan", scan, true},
    {"scan-reference", scanReference, true},
    {"transforms", transforms, false},
    {"transforms-reference", transformsReference, false},
    {"front-end", frontEnd, false},
    {"voice-model", voiceModel, false},
    {"create", create, false},
    {"steering", steering, false},
    {"steering-reference", steeringReference, false},
};

// The counted part: the repeats alone.
__attribute__((noinline)) void measured(Stage stage, Run *run, int repeats) {
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_TOGGLE_COLLECT;
  for (int i = 0; i < repeats; ++i) stage(run);
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_STOP_INSTRUMENTATION;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2 || argc > 3) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const NamedStage *stage = nullptr;
  for (const NamedStage &s : kStages)
    if (std::strcmp(argv[1], s.name) == 0) stage = &s;
  const int repeats = argc == 3 ? std::atoi(argv[2]) : 10;
  if (stage == nullptr || repeats <= 0) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const BenchRecording rec(kSeconds, 30.0, 20.0, 1);
  Run run{&rec, benchWarmEstimator(rec, kWarmFrames), kWarmFrames, 0};
  if (stage->allBins) benchSelectAllBins(run.est);
  // The plain scan reads the full steering table, which only it needs.
  if (stage->run == scanReference && orienAngleEstimatorUseReferenceArithmetic(run.est) != 0)
    return 1;
  measured(stage->run, &run, repeats);
  orienAngleEstimatorDestroy(run.est);
  std::printf("%s: %d repeats (%d)\n", stage->name, repeats, run.sink & 1);
  return 0;
}
