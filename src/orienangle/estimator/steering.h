// Steering table of the 8-microphone line array: for each grid direction a
// (theta = a - 90 degrees), bin k and microphone m, the weight
//   e^{+j (m - 3.5) 2 pi f_k d sin(theta) / c},  f_k = k * 11.71875 Hz,
// which phase-aligns a plane wave from theta across the microphones.
//
// The table is exactly symmetric: mirrored microphones and mirrored directions
// give complex conjugates,
//   steering[a][k][7 - m] = conj(steering[a][k][m])      (x = (m - 3.5) phi is negated)
//   steering[180 - a][k][m] = conj(steering[a][k][m])    (theta, so sin theta, is negated)
// so a quarter of it (a = 0..90, m = 0..3) determines the rest.
#pragma once
#include "orienangle/estimator/estimator_constants.h"
#include "orienangle/estimator/scan_vector.h"
#include "orienangle/estimator/spectrum.h"

// The independent quarter of the table in the order the angle scan reads it.
constexpr int SCAN_HALF_ANGLES = ORIEN_ANGLE_BROADSIDE + 1;  // a = 0..90; 180 - a mirrors a
constexpr int SCAN_GROUPS = (SCAN_HALF_ANGLES + SCAN_LANES - 1) / SCAN_LANES;
constexpr int SCAN_BINS = ORIEN_BINS - ORIEN_SCAN_FIRST_BIN;  // bins 20..499
constexpr int SCAN_HALF_MICS = ORIEN_MIC_NUM / 2;             // m = 0..3; 7 - m mirrors m

struct SteeringScanTable {
  // [k - 20][group][m][0 = re, 1 = im][lane]: steering[group * SCAN_LANES + lane][k][m];
  // lanes past a = 90 hold zeros.
  alignas(ScanVec) float w[SCAN_BINS][SCAN_GROUPS][SCAN_HALF_MICS][2][SCAN_LANES];
};

// Builds the table: one sincos per (a, k, m) of the independent quarter, the
// rest by conjugation; bit for bit the table of steeringBuildReference. When
// scanTable is not null, it receives the quarter in the angle scan's layout.
void steeringBuild(OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM],
                   SteeringScanTable *scanTable = nullptr);

// The plain build, one sincos per entry: the reference for steeringBuild.
void steeringBuildReference(OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM]);

// The scan's table taken from a built steering table (the plain way to fill it).
void steeringScanTableBuild(const OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM],
                            SteeringScanTable *table);
