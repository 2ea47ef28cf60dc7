// Multichannel spectral analysis: the one transform every stage uses, the sliding
// analysis block that feeds it, and band energies over the band-edge table.
#pragma once
#include <cstdint>

#include "orienangle/estimator/estimator_constants.h"

// One complex bin: two single-precision floats, real part first.
struct OrienComplex {
  float re;
  float im;
};

// FFT bin numbers bounding the 17 bands (234 Hz .. 5.4 kHz at 48 kHz); band b
// covers edge[b] <= k < edge[b + 1]. The last entry belongs to the table but
// bounds no band.
extern const int16_t ORIEN_BAND_EDGE[ORIEN_BAND_EDGES];

struct RealTransformPlan;  // real_transform.h

// The reference transform, the executable definition of the arithmetic (tests
// and offline tools; the estimator's fast path is real_transform.h). in: 4096
// real samples; out: bins 0..2048 of their forward transform scaled by 1/4096,
// bin k = (1/4096) * sum x[n] e^(-2 pi i k n / 4096), by KISS FFT's complex
// transform. The first call builds the process-wide plans and tables (one
// thread at a time must run it).
void spectrumTransform(OrienComplex *out, const float *in);

// Analysis-block step of one stream: block = history (2880) + newSamples (960) +
// 256 zeros; the history slides to the newest 2880 samples; out = transform of
// the block. With a plan, the fast transform fills bins 0..499 (ORIEN_BINS, all
// that any stage reads) and leaves the rest of out alone; with a null plan,
// spectrumTransform fills bins 0..2048.
void spectrumAnalyseBlock(RealTransformPlan *plan, float *history, const float *newSamples,
                          OrienComplex *out);

// out[0..16]: sum of re^2 + im^2 over each band's bins, in single precision from 0
// in increasing bin order; out[17..21] = 0.
void bandEnergies(float *out, const OrienComplex *spectrum);

// The process-wide tables built with the plans (no estimator stage reads them).
struct SpectrumSharedTables {
  float longWindow[ORIEN_AUX_FFT_SIZE];  // sin(pi/2 * sin^2((i+0.5) pi/2 / 1920))^2 / 1.25
  float shortWindow[ORIEN_AUX_WINDOW];   // sin(pi/2 * sin^2((i+0.5) pi/2 / 960))
  float cosineTable[ORIEN_DCT_SIZE *
                    ORIEN_DCT_SIZE];  // cos((i+0.5) j pi / 22), j=0 column * sqrt(1/2)
};
