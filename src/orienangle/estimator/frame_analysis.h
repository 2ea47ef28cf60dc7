// Spectral front end of a frame: the eight microphone spectra, band energies of
// microphone 0, summed bin powers, their smoothed copies, the microphone noise
// tracker and the band-SNR speech decision.
#pragma once
#include "orienangle/estimator/estimator.h"

// frame: 8 planes of 960 floats; aux: not read; spectra: [8][2049], overwritten.
// Returns 0.0.
float orienAngleFrameAnalyse(OrienAngleEstimator *est, const float *frame, const float *aux,
                             OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS]);

// Band-SNR speech decision from the low (0..8) and high (13..16) band SNR maxima
// in dB, each already at least 0: 1 for a clear low-band excess not matched by a
// comparable high-band one.
int frameSpeechDecision(float lowMaxDb, float highMaxDb);
