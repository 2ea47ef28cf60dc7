// Spatial spectrum and peak picking: steered response power over the 181 grid
// directions, summed over the frame's selected bins with per-bin power
// normalisation and a square-root SNR weight; the three strongest local peaks go
// into the per-frame rings.
#pragma once
#include "orienangle/estimator/estimator.h"

// Writes angleSpectrum[frameCursor] and peakAngles[frameCursor]. Returns the grid
// index of the global maximum (90 if no value exceeds 0).
int spatialSpectrumScan(OrienAngleEstimator *est,
                        const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS]);

// The plain scan, one direction at a time: the definition of the arithmetic,
// for tests and offline tools. It reads the record's full reference table when
// there is one (orienAngleEstimatorUseReferenceArithmetic), else it computes each
// direction's weights as it goes.
int spatialSpectrumScanReference(OrienAngleEstimator *est,
                                 const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS]);

// Peak picking alone: the best, second and third local peaks of p[0..180] into
// peaks[0..2] (230 for an empty slot).
void spatialPickPeaks(const float *p, uint32_t *peaks);
