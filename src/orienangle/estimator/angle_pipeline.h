// The per-frame angle pipeline: one 8 x 960 float frame in, one direction byte out.
#pragma once
#include <cstdint>

#include "orienangle/estimator/estimator_constants.h"  // ANGLE_NONE, ANGLE_FAR_END

struct OrienAngleEstimator;

// What each of the last 100 frames said, indexed by frameCursor: the band and
// bin tests' counts and the two speech decisions that acceptance reads back.
struct AngleDecisionRings {
  uint32_t bandHitCount[ORIEN_SLOTS];     // bands 0..15 above 3 x noise
  uint32_t lowBandHitCount[ORIEN_SLOTS];  // the same over bands 0..8
  uint32_t speechFlag[ORIEN_SLOTS];       // band-SNR speech decision (frame analysis)
  uint32_t vadFlag[ORIEN_SLOTS];          // voice decision
  uint32_t binHitCount[ORIEN_SLOTS];      // selected bins among 20..179
};

// frame: 8 planes of 960 floats at 16-bit scale; spkinFrame: 960 floats or null.
// Writes the low bytes of the published direction and of the second byte.
float angleFrameProcess(OrienAngleEstimator *est, const float *frameAlias, const float *frame,
                        const float *spkinFrame, uint8_t *outAngle, uint8_t *outAux);

// Steps of one frame, each acting on the state record as angleFrameProcess uses
// them; exposed so that a rule can be exercised on its own.
// Band test: bands 0..15 above 3 x noise (sets bandActive, the decision rings' counts).
void angleBandTest(OrienAngleEstimator *est);
// Bin selection over bins 20..499 (binSelected, binSelectedCount, decision.binHitCount).
void angleSelectBins(OrienAngleEstimator *est);
// Voice decision from the voice model's two halves: either probability above
// 0.5, or three or more of either half's gains 1..15 above 0.5.
bool angleVoiced(float p1, float p2, const float *gains1, const float *gains2);
// Ten consecutive samples within +-1 anywhere in the 8 x 960 frame.
bool angleDigitalSilence(const float *frame);
// Update gate, pooling, acceptance, smoothing and stale timeout for the frame at
// frameCursor (does not advance the cursors).
void angleDecide(OrienAngleEstimator *est);
