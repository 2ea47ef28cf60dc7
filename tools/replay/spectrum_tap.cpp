#include "replay/spectrum_tap.h"

#include "orienangle/estimator_state.h"

namespace {
constexpr int kSlots = 100;
constexpr unsigned kAngleNone = 230;
}  // namespace

const float *replayFrameSpectrum(const OrienAngleEstimator *est) {
  // The pipeline has already advanced the cursor past the frame.
  const unsigned slot = (est->frameCursor + kSlots - 1) % kSlots;
  // A frame that was scanned always has a best candidate; one without a scan
  // keeps the empty marker and a stale spectrum row.
  if (est->peakAngles[slot][0] == kAngleNone) return nullptr;
  return est->angleSpectrum[slot];
}
