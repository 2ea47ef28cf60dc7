// Band analysis of the voice model: windowed 960-sample spectrum of the
// previous and the current 10 ms frame, pooled into 22 triangular bands.
#pragma once
#include <cstdint>

#include "orienangle/estimator/voice_model/voice_model_config.h"

struct BandAnalysis {
  int32_t ready;                                                // 1 once window and plan are built
  float window[voice::kWindowSize];                             // Hann window
  float previousInput[voice::kFrameSize];                       // the frame before this one
  alignas(16) unsigned char fftMemory[voice::kFftMemoryBytes];  // real-FFT plan
};

// Builds window and FFT plan inside the record (no heap); 0 on success.
// A zero-filled record is valid: the first analysis builds them.
int bandAnalysisPrepare(BandAnalysis *ba);

// Mean square of one frame of input.
float frameMeanSquare(const float *in);

// Slides in one frame of 480 samples and computes the 22 band energies of the
// windowed span [previous frame, this frame].
void bandAnalysisRun(BandAnalysis *ba, const float *in, float bandEnergy[voice::kBands]);

// Slides in a frame without analysing it (silent frames).
void bandAnalysisSkip(BandAnalysis *ba, const float *in);
