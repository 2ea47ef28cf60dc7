// Plane-wave array simulator: renders what the 8-microphone linear array hears
// when a far-field source plays a mono signal from a direction theta.
//
// Geometry (the board's array): microphone m sits at (m - 3.5) * 0.03 m along the
// line; theta is measured from broadside in degrees, -90..+90, and the estimator's
// grid index is a = theta + 90. A source at theta reaches microphone m delayed by
//     (m - 3.5) * d * sin(theta) / c      (d = 0.03 m, c = 346 m/s)
// relative to the array centre, so microphone 0 hears a source at positive theta
// first. Delays are fractional (at most +-14.6 samples at 48 kHz) and are applied
// with a long Kaiser-windowed sinc interpolator, accurate far beyond 0..6 kHz.
//
// Samples of the source before its start or after its end count as zero.
#pragma once
#include <cstddef>

constexpr int PLANE_WAVE_MICS = 8;
constexpr double PLANE_WAVE_SAMPLE_RATE = 48000.0;  // Hz
constexpr double PLANE_WAVE_MIC_SPACING = 0.03;     // m between neighbouring microphones
constexpr double PLANE_WAVE_SOUND_SPEED = 346.0;    // m/s

// A direction schedule entry: from output sample startSample on (until the next
// entry's start), the source is at thetaDeg.
struct PlaneWaveSegment {
  size_t startSample;
  double thetaDeg;
};

// Delay of microphone mic, in samples at 48 kHz, for a source at thetaDeg.
double planeWaveDelaySamples(int mic, double thetaDeg);

// Estimator grid index of a direction in whole degrees (a = theta + 90).
constexpr int planeWaveAngleIndex(int thetaDeg) { return thetaDeg + 90; }

// All renderers write 8 planes of n floats, plane m (microphone m) at out + m * n,
// the same planar layout as the estimator's frames. src holds n samples.

// Fixed direction.
void planeWaveRender(const float *src, size_t n, double thetaDeg, float *out);

// Piecewise-constant direction: segments sorted by startSample; output samples
// before the first segment's start use the first segment's direction.
void planeWaveRenderSegments(const float *src, size_t n, const PlaneWaveSegment *segments,
                             size_t segmentCount, float *out);

// Per-sample direction: thetaDeg[i] is the direction for output sample i (a
// moving talker); each output sample reads the source at its own delay.
void planeWaveRenderPath(const float *src, size_t n, const double *thetaDeg, float *out);
