// Conversion of captured 16-bit little-endian frames into the estimator's float
// layout, at 16-bit scale (a sample of 1000 becomes 1000.0f).
#pragma once
#include <cstdint>

#include "orienangle/estimator/estimator_constants.h"

// interleaved: 960 frames of 8 samples; planar: 8 planes of 960 floats.
void orienAngleFrameToPlanar(const uint8_t *interleaved, float *planar);
// samples: 960 mono samples; out: 960 floats.
void orienAngleSpkinToFloat(const uint8_t *samples, float *out);
