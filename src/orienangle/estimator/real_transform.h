// The fast forward transform of one analysis block: 4096 real samples to the
// low bins of their spectrum, scaled by 1/4096 as spectrumTransform is. One
// backend per platform, chosen at build time: real_transform_kiss.cpp (KISS
// FFT's real-input transform) on the PC, real_transform_neon.cpp (a radix-4
// transform in NEON) on the board. Both are exact transforms in float,
// so their bins agree with spectrumTransform's to rounding, not bit for bit.
#pragma once

#include "orienangle/estimator/spectrum.h"

// Plans and working storage of one transform user (the estimator owns one).
struct RealTransformPlan;

// Builds the plan; null if memory runs out.
RealTransformPlan *realTransformCreate();
void realTransformDestroy(RealTransformPlan *plan);

// out[k] for k < bins (at most ORIEN_SPECTRUM_BINS): bin k of the transform of
// in[0..4095], scaled by 1/4096. `in` may be used as working storage.
void realTransformRun(RealTransformPlan *plan, float *in, OrienComplex *out, int bins);
