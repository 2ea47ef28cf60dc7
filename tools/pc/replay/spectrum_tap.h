// Read access to the spatial spectrum the estimator stored for the frame it
// has just processed.
#pragma once

struct OrienAngleEstimator;

constexpr int REPLAY_ANGLES = 181;  // grid indexes 0..180 = -90..+90 degrees

// The 181-value spatial spectrum of the last processed frame, or null when that
// frame had no scan (digital silence, the frames after it, or too few bins).
const float *replayFrameSpectrum(const OrienAngleEstimator *est);
