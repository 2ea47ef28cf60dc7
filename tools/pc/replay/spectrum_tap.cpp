#include "replay/spectrum_tap.h"

#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/estimator.h"

static_assert(REPLAY_ANGLES == ORIEN_ANGLE_NUM, "one spectrum value per grid direction");

const float *replayFrameSpectrum(const OrienAngleEstimator *est) {
  // The pipeline has already advanced the cursor past the frame.
  const uint32_t slot = (est->frameCursor + ORIEN_SLOTS - 1) % ORIEN_SLOTS;
  // A scanned frame always has a best candidate; a frame without a scan keeps
  // the empty marker and a stale spectrum row.
  if (est->peakAngles[slot][0] == static_cast<uint32_t>(ANGLE_NONE)) return nullptr;
  return est->angleSpectrum[slot];
}
