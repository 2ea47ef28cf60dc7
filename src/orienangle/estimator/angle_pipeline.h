// The per-frame angle pipeline: one 8 x 960 float frame in, one direction byte out.
#pragma once
#include <cstdint>

#include "orienangle/estimator/estimator_constants.h"  // ANGLE_NONE, ANGLE_FAR_END

struct OrienAngleEstimator;

// frame: 8 planes of 960 floats at 16-bit scale; spkinFrame: 960 floats or null.
// Writes the low bytes of the published direction and of the second byte.
float angleFrameProcess(OrienAngleEstimator *est, const float *frameAlias, const float *frame,
                        const float *spkinFrame, uint8_t *outAngle, uint8_t *outAux);

// Steps of one frame, each acting on the state record as angleFrameProcess uses
// them; exposed so that a rule can be exercised on its own.
// Band test: bands 0..15 above 3 x noise (sets bandActive, the per-frame counts).
void angleBandTest(OrienAngleEstimator *est);
// Bin selection over bins 20..499 (binSelected, binSelectedCount, binHitCount).
void angleSelectBins(OrienAngleEstimator *est);
// Ten consecutive samples within +-1 anywhere in the 8 x 960 frame.
bool angleDigitalSilence(const float *frame);
// Update gate, pooling, acceptance, smoothing and stale timeout for the frame at
// frameCursor (does not advance the cursors).
void angleDecide(OrienAngleEstimator *est);
