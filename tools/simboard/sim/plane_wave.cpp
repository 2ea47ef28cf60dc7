#include "sim/plane_wave.h"

#include <cmath>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kHalfTaps = 48;           // interpolator taps on each side of the read point
constexpr double kKaiserBeta = 9.0;     // about 90 dB stop band, flat pass band to ~21 kHz
constexpr int kWindowTableSize = 8192;  // window samples over its half length

// Zeroth-order modified Bessel function, for the Kaiser window.
double besselI0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; k < 60; ++k) {
    term *= (x / (2.0 * k)) * (x / (2.0 * k));
    sum += term;
    if (term < sum * 1e-17) break;
  }
  return sum;
}

// Kaiser window w(u) for |u| <= kHalfTaps, tabulated over 0..kHalfTaps and read
// with linear interpolation (error below 1e-7 of the peak).
struct WindowTable {
  std::vector<double> w;
  WindowTable() : w(kWindowTableSize + 2) {
    const double norm = besselI0(kKaiserBeta);
    for (int i = 0; i <= kWindowTableSize + 1; ++i) {
      double x = std::fmin(1.0, static_cast<double>(i) / kWindowTableSize);
      w[i] = besselI0(kKaiserBeta * std::sqrt(1.0 - x * x)) / norm;
    }
  }
  double at(double u) const {
    double x = std::fabs(u) / kHalfTaps * kWindowTableSize;
    if (x >= kWindowTableSize) return 0.0;
    int i = static_cast<int>(x);
    double f = x - i;
    return w[i] + f * (w[i + 1] - w[i]);
  }
};

const WindowTable &windowTable() {
  static const WindowTable table;
  return table;
}

// Interpolation kernel for reading the source at base + frac (0 <= frac < 1):
// taps j = -kHalfTaps+1 .. kHalfTaps weigh source sample base + j.
struct Kernel {
  double tap[2 * kHalfTaps];
  double frac = -1.0;  // fractional part the taps were built for

  void build(double frac_) {
    frac = frac_;
    const WindowTable &win = windowTable();
    // sin(pi * (j - f)) = -(-1)^j * sin(pi * f): one sine per kernel.
    const double sinPiF = std::sin(kPi * frac);
    for (int t = 0; t < 2 * kHalfTaps; ++t) {
      int j = t - kHalfTaps + 1;
      double u = j - frac;
      double sinc;
      if (std::fabs(u) < 1e-12) {
        sinc = 1.0;
      } else {
        double s = (j & 1) ? sinPiF : -sinPiF;
        sinc = s / (kPi * u);
      }
      tap[t] = sinc * win.at(u);
    }
  }
};

// One output sample: the source read at time position (may be fractional or
// outside the signal). kernel caches the taps of the last fractional part.
float readAt(const float *src, size_t n, double position, Kernel &kernel) {
  double fl = std::floor(position);
  double frac = position - fl;
  if (frac != kernel.frac) kernel.build(frac);
  long base = static_cast<long>(fl);
  long first = base - kHalfTaps + 1;
  double acc = 0.0;
  if (first >= 0 && base + kHalfTaps < static_cast<long>(n)) {
    const float *p = src + first;
    for (int t = 0; t < 2 * kHalfTaps; ++t) acc += kernel.tap[t] * p[t];
  } else {
    for (int t = 0; t < 2 * kHalfTaps; ++t) {
      long i = first + t;
      if (i >= 0 && i < static_cast<long>(n)) acc += kernel.tap[t] * src[i];
    }
  }
  return static_cast<float>(acc);
}

}  // namespace

double planeWaveDelaySamples(int mic, double thetaDeg) {
  double seconds = (mic - 3.5) * PLANE_WAVE_MIC_SPACING * std::sin(thetaDeg * kPi / 180.0) /
                   PLANE_WAVE_SOUND_SPEED;
  return seconds * PLANE_WAVE_SAMPLE_RATE;
}

void planeWaveRender(const float *src, size_t n, double thetaDeg, float *out) {
  PlaneWaveSegment one{0, thetaDeg};
  planeWaveRenderSegments(src, n, &one, 1, out);
}

void planeWaveRenderSegments(const float *src, size_t n, const PlaneWaveSegment *segments,
                             size_t segmentCount, float *out) {
  if (segmentCount == 0) return;
  for (int m = 0; m < PLANE_WAVE_MICS; ++m) {
    Kernel kernel;
    float *plane = out + static_cast<size_t>(m) * n;
    size_t seg = 0;
    double delay = planeWaveDelaySamples(m, segments[0].thetaDeg);
    for (size_t i = 0; i < n; ++i) {
      while (seg + 1 < segmentCount && segments[seg + 1].startSample <= i) {
        ++seg;
        delay = planeWaveDelaySamples(m, segments[seg].thetaDeg);
      }
      plane[i] = readAt(src, n, static_cast<double>(i) - delay, kernel);
    }
  }
}

void planeWaveRenderPath(const float *src, size_t n, const double *thetaDeg, float *out) {
  for (int m = 0; m < PLANE_WAVE_MICS; ++m) {
    Kernel kernel;
    float *plane = out + static_cast<size_t>(m) * n;
    for (size_t i = 0; i < n; ++i)
      plane[i] =
          readAt(src, n, static_cast<double>(i) - planeWaveDelaySamples(m, thetaDeg[i]), kernel);
  }
}
