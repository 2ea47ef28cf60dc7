// Steering weights of the 8-microphone line array: for each grid direction a
// (theta = a - 90 degrees), bin k and microphone m, the weight
//   e^{+j (m - 3.5) 2 pi f_k d sin(theta) / c},  f_k = k * 11.71875 Hz,
// which phase-aligns a plane wave from theta across the microphones.
//
// The weights are exactly symmetric: mirrored microphones and mirrored
// directions give complex conjugates,
//   S[a][k][7 - m] = conj(S[a][k][m])      (x = (m - 3.5) phi is negated)
//   S[180 - a][k][m] = conj(S[a][k][m])    (theta, so sin theta, is negated)
// so a quarter (a = 0..90, m = 0..3) determines the rest. The estimator keeps
// only that quarter, for bins 20..499, in the order the angle scan reads it;
// the full table is built only for the reference scan.
#pragma once
#include "orienangle/estimator/estimator_constants.h"
#include "orienangle/estimator/spectrum.h"

constexpr int SCAN_LANES = 4;                                // directions per vector
constexpr int SCAN_HALF_ANGLES = ORIEN_ANGLE_BROADSIDE + 1;  // a = 0..90; 180 - a mirrors a
constexpr int SCAN_GROUPS = (SCAN_HALF_ANGLES + SCAN_LANES - 1) / SCAN_LANES;
constexpr int SCAN_BINS = ORIEN_BINS - ORIEN_SCAN_FIRST_BIN;  // bins 20..499
constexpr int SCAN_HALF_MICS = ORIEN_MIC_NUM / 2;             // m = 0..3; 7 - m mirrors m

struct SteeringTable {
  OrienComplex w[ORIEN_ANGLE_NUM][ORIEN_BINS][ORIEN_MIC_NUM];  // a, k, m
};

struct SteeringScanTable {
  // [k - 20][group][m][0 = re, 1 = im][lane]: S[group * SCAN_LANES + lane][k][m].
  // Lanes past a = 90 hold zeros. One bin's weights are 23 x 128 bytes, read
  // front to back, and the scan walks the selected bins in increasing order: one
  // forward stream (1.4 MB with every bin selected, more than the board's L2,
  // so it comes from memory each frame; the hardware prefetcher follows it).
  // Keeping fewer weights and deriving the rest (m = 0..2 as powers of m = 3)
  // would quarter the stream but about double the arithmetic.
  alignas(16) float w[SCAN_BINS][SCAN_GROUPS][SCAN_HALF_MICS][2][SCAN_LANES];
};

// Builds the scan's quarter: one sincos per entry, by the reference's formula,
// so every weight equals the reference table's bit for bit.
void steeringScanBuild(SteeringScanTable *table);

// The full table, one sincos per entry: the definition of the weights.
void steeringBuildReference(SteeringTable *table);
// Its row of direction a alone: S[a][k][m] for k = 0..499.
void steeringReferenceRow(int a, OrienComplex (*row)[ORIEN_MIC_NUM]);
