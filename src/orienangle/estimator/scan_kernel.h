// The angle scan's inner loop: one bin's steered power added for every grid
// direction, four directions per vector.
//
// The array's symmetry does most of the work. Microphone 7 - m's weight is the
// conjugate of m's, so with S = c + js, P = X_m + X_7-m and Q = X_m - X_7-m,
//   S X_m + conj(S) X_7-m = c P + j s Q,
// and a direction's steered sum is Y(a) = A + jB with A = sum c_m P_m and
// B = sum s_m Q_m over m = 0..3. Direction 180 - a has the conjugate weights
// (s negated), so Y(180 - a) = A - jB from the same A and B. P and Q come
// scaled by the bin's factor sqrt(w / norm), so |Y|^2 needs no weighting.
//
// On ARM the loop is written in NEON intrinsics: GCC keeps vector-extension
// float arithmetic off 32-bit NEON (which flushes subnormals to zero). Elsewhere
// GCC vectors give SSE on x86-64 and plain scalar code on a core without SIMD.
// Both run the same operations in the same order, each rounded on its own, so
// they agree bit for bit on normal numbers.
#pragma once
#include "orienangle/estimator/steering.h"

// One selected bin: P and Q of microphones 0..3, scaled, as
// {Re P_0..3, Im P_0..3, Re Q_0..3, Im Q_0..3}.
struct ScanBin {
  alignas(16) float pq[4][SCAN_HALF_MICS];
};

#if defined(__ARM_NEON)
#include <arm_neon.h>

typedef float32x4_t ScanVec;
inline ScanVec scanZero() { return vdupq_n_f32(0.0f); }
inline float scanLane(ScanVec v, int lane) {
  float out[SCAN_LANES];
  vst1q_f32(out, v);
  return out[lane];
}

// w: the bin's weights, [group][m][re, im][lane]. sumA, sumB: per group, the
// powers of directions g * 4 + lane and of their mirrors 180 - (g * 4 + lane).
inline void scanKernel(const ScanBin &bin, const float *w, ScanVec *sumA, ScanVec *sumB) {
  const float32x4_t pr = vld1q_f32(bin.pq[0]), pi = vld1q_f32(bin.pq[1]);
  const float32x4_t qr = vld1q_f32(bin.pq[2]), qi = vld1q_f32(bin.pq[3]);
  const float32x2_t pr01 = vget_low_f32(pr), pr23 = vget_high_f32(pr);
  const float32x2_t pi01 = vget_low_f32(pi), pi23 = vget_high_f32(pi);
  const float32x2_t qr01 = vget_low_f32(qr), qr23 = vget_high_f32(qr);
  const float32x2_t qi01 = vget_low_f32(qi), qi23 = vget_high_f32(qi);
  // Loads in address order, each moving the pointer on: 32-bit NEON loads have
  // no offset form, and the empty asm keeps GCC from turning the increments
  // back into one add per load.
  auto next = [&w]() {
    const float32x4_t v = vld1q_f32(w);
    w += SCAN_LANES;
    asm("" : "+r"(w));
    return v;
  };
  for (int g = 0; g < SCAN_GROUPS; ++g) {
    const float32x4_t c0 = next(), s0 = next(), c1 = next(), s1 = next();
    const float32x4_t c2 = next(), s2 = next(), c3 = next(), s3 = next();
    float32x4_t ar = vmulq_lane_f32(c0, pr01, 0), ai = vmulq_lane_f32(c0, pi01, 0);
    float32x4_t br = vmulq_lane_f32(s0, qr01, 0), bi = vmulq_lane_f32(s0, qi01, 0);
    ar = vmlaq_lane_f32(ar, c1, pr01, 1), ai = vmlaq_lane_f32(ai, c1, pi01, 1);
    br = vmlaq_lane_f32(br, s1, qr01, 1), bi = vmlaq_lane_f32(bi, s1, qi01, 1);
    ar = vmlaq_lane_f32(ar, c2, pr23, 0), ai = vmlaq_lane_f32(ai, c2, pi23, 0);
    br = vmlaq_lane_f32(br, s2, qr23, 0), bi = vmlaq_lane_f32(bi, s2, qi23, 0);
    ar = vmlaq_lane_f32(ar, c3, pr23, 1), ai = vmlaq_lane_f32(ai, c3, pi23, 1);
    br = vmlaq_lane_f32(br, s3, qr23, 1), bi = vmlaq_lane_f32(bi, s3, qi23, 1);
    const float32x4_t yr = vsubq_f32(ar, bi), yi = vaddq_f32(ai, br);  // A + jB
    const float32x4_t zr = vaddq_f32(ar, bi), zi = vsubq_f32(ai, br);  // A - jB
    sumA[g] = vmlaq_f32(vmlaq_f32(sumA[g], yr, yr), yi, yi);
    sumB[g] = vmlaq_f32(vmlaq_f32(sumB[g], zr, zr), zi, zi);
  }
}

#else

typedef float ScanVec __attribute__((vector_size(16)));
inline ScanVec scanZero() { return ScanVec{}; }
inline float scanLane(ScanVec v, int lane) { return v[lane]; }

inline ScanVec scanSplat(float x) { return ScanVec{x, x, x, x}; }
inline ScanVec scanLoad(const float *p) {
  ScanVec v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}

inline void scanKernel(const ScanBin &bin, const float *w, ScanVec *sumA, ScanVec *sumB) {
  const ScanVec pr0 = scanSplat(bin.pq[0][0]), pr1 = scanSplat(bin.pq[0][1]);
  const ScanVec pr2 = scanSplat(bin.pq[0][2]), pr3 = scanSplat(bin.pq[0][3]);
  const ScanVec pi0 = scanSplat(bin.pq[1][0]), pi1 = scanSplat(bin.pq[1][1]);
  const ScanVec pi2 = scanSplat(bin.pq[1][2]), pi3 = scanSplat(bin.pq[1][3]);
  const ScanVec qr0 = scanSplat(bin.pq[2][0]), qr1 = scanSplat(bin.pq[2][1]);
  const ScanVec qr2 = scanSplat(bin.pq[2][2]), qr3 = scanSplat(bin.pq[2][3]);
  const ScanVec qi0 = scanSplat(bin.pq[3][0]), qi1 = scanSplat(bin.pq[3][1]);
  const ScanVec qi2 = scanSplat(bin.pq[3][2]), qi3 = scanSplat(bin.pq[3][3]);
  for (int g = 0; g < SCAN_GROUPS; ++g, w += SCAN_HALF_MICS * 2 * SCAN_LANES) {
    const ScanVec c0 = scanLoad(w), s0 = scanLoad(w + 4), c1 = scanLoad(w + 8),
                  s1 = scanLoad(w + 12);
    const ScanVec c2 = scanLoad(w + 16), s2 = scanLoad(w + 20), c3 = scanLoad(w + 24),
                  s3 = scanLoad(w + 28);
    const ScanVec ar = ((c0 * pr0 + c1 * pr1) + c2 * pr2) + c3 * pr3;
    const ScanVec ai = ((c0 * pi0 + c1 * pi1) + c2 * pi2) + c3 * pi3;
    const ScanVec br = ((s0 * qr0 + s1 * qr1) + s2 * qr2) + s3 * qr3;
    const ScanVec bi = ((s0 * qi0 + s1 * qi1) + s2 * qi2) + s3 * qi3;
    const ScanVec yr = ar - bi, yi = ai + br;  // A + jB
    const ScanVec zr = ar + bi, zi = ai - br;  // A - jB
    sumA[g] = (sumA[g] + yr * yr) + yi * yi;
    sumB[g] = (sumB[g] + zr * zr) + zi * zi;
  }
}

#endif
