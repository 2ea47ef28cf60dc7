// The direction estimator's one state record and its life cycle.
//
// The record holds everything the estimator remembers: per-stream sample
// histories, the 100-slot per-frame result rings indexed by frameCursor, three
// noise trackers, the voice model's state, a scratch area for one frame's working
// storage and the steering weights' independent quarter laid out for the angle
// scan. It is one heap block (about 1.9 MB); nothing is allocated per frame. Only
// the angle worker thread touches it.
#pragma once
#include <cstdint>

#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/estimator_constants.h"
#include "orienangle/estimator/far_end_detector.h"
#include "orienangle/estimator/noise_tracker.h"
#include "orienangle/estimator/real_transform.h"
#include "orienangle/estimator/spectrum.h"
#include "orienangle/estimator/steering.h"
#include "orienangle/estimator/voice_model/rnnoise.h"

// Working storage of one pipeline call; contents do not carry between frames.
struct OrienAngleScratch {
  OrienComplex spectra[ORIEN_MIC_NUM][ORIEN_SPECTRUM_BINS];  // this frame's microphone spectra
  OrienComplex refSpectrum[ORIEN_SPECTRUM_BINS];             // loudspeaker reference spectrum
  float frontEnd[ORIEN_SPECTRUM_BINS];  // auxiliary vector handed to the front end (not read)
  float denoiseInput[PIPE_DENOISE_BLOCK];
  // The voice model leaves its 22 band gains at the front of its output; the
  // buffers are a full block long so that a library writing samples also fits.
  float denoiseOut[2][PIPE_DENOISE_BLOCK];
  float pooled[ORIEN_ANGLE_NUM];  // pooling accumulator
};

struct OrienAngleEstimator {
  uint32_t peakAngles[ORIEN_SLOTS][ORIEN_PEAKS];       // best, second, third peak; 230 = none
  float angleSpectrum[ORIEN_SLOTS][ORIEN_ANGLE_NUM];   // spatial spectrum per frame
  uint32_t frameCursor;                                // slot of the current frame, 0..99
  uint32_t curAngle;                                   // published direction or status
  uint32_t prevAngle;                                  // second published byte
  int32_t idleFrames;                                  // frames since the last decision
  AngleDecisionRings decision;                         // per-frame counts and speech decisions
  uint32_t bandActive[PIPE_HIT_BANDS];                 // band ever above 3 x noise
  int32_t holdCount;                                   // skip counter after digital silence
  uint32_t ringCursor;                                 // slot of bandEnergyRing, 0..7
  float bandEnergyRing[ORIEN_BAND_RING][ORIEN_BANDS];  // smoothed band energies
  float bandEnergy[ORIEN_BANDS];                       // microphone 0, this frame
  float micHistory[ORIEN_MIC_NUM][ORIEN_HISTORY];      // last 2880 samples, oldest first
  uint16_t binSelected[ORIEN_BINS];                    // bin takes part in the scan
  uint32_t binSelectedCount;
  float binPower[ORIEN_SPECTRUM_BINS];        // sum over microphones of |X|^2, 0..499
  float binPowerSmooth[ORIEN_SPECTRUM_BINS];  // its recursive average, 0..499
  NoiseTracker micNoise;                      // fed with bandEnergy and binPower
  NoiseTracker spareNoise;                    // initialised, never fed
  FarEndDetector farEnd;                      // loudspeaker activity detector
  DenoiseState *denoiser;                     // owned voice-model state
  RealTransformPlan *transformPlan;           // owned plan of the fast transform
  // Set only by tests and offline tools, after creation, best through
  // orienAngleEstimatorUseReferenceArithmetic: the transforms and the angle scan
  // then run their plain reference arithmetic instead of the fast paths.
  bool referenceArithmetic;
  SteeringTable *referenceSteering;  // the reference scan's full table, owned; null in the daemon
  OrienAngleScratch scratch;         // one frame's working storage
  SteeringScanTable scanSteering;    // steering, laid out for the scan
};

// Allocates the record in one block, creates the transform plan, initialises the
// record and creates the voice-model state. Null if an allocation fails.
OrienAngleEstimator *orienAngleEstimatorCreate();
// Clears the record to its creation state and builds the scan's steering table.
// Returns 0. The transform plan and the reference table (fixed for the record's
// life) are kept; the denoiser pointer is cleared: call it on a record made by
// orienAngleEstimatorCreate.
int orienAngleEstimatorInit(OrienAngleEstimator *est);
// Releases the voice-model state, the transform plan and the reference table if
// any, then the record.
void orienAngleEstimatorDestroy(OrienAngleEstimator *est);
// Switches the record to the reference arithmetic and builds the full steering
// table the reference scan reads (5.8 MB, tests and offline tools only).
// Returns 0, or -1 if the table cannot be allocated.
int orienAngleEstimatorUseReferenceArithmetic(OrienAngleEstimator *est);

// The plan the analysis blocks run (spectrumAnalyseBlock): null, which selects
// the reference transform, under referenceArithmetic or in a record without one.
inline RealTransformPlan *orienAngleTransformPlan(const OrienAngleEstimator *est) {
  return est->referenceArithmetic ? nullptr : est->transformPlan;
}
