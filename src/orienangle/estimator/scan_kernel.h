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
// On ARM the loop is written in NEON assembly: GCC keeps vector-extension
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

// P and Q of bin k times scale, four microphones per vector: the mirrored
// pairs (0, 7), (1, 6) summed and differenced as {re, im, re, im}, then
// de-interleaved; each sum and product rounded as in the plain loop below.
inline void scanPrepareBin(ScanBin &bin, const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS], int k,
                           float scale) {
  static_assert(ORIEN_MIC_NUM == 8, "four mirrored pairs");
  const float32x4_t x01 = vcombine_f32(vld1_f32(&spectra[0][k].re), vld1_f32(&spectra[1][k].re));
  const float32x4_t x23 = vcombine_f32(vld1_f32(&spectra[2][k].re), vld1_f32(&spectra[3][k].re));
  const float32x4_t y01 = vcombine_f32(vld1_f32(&spectra[7][k].re), vld1_f32(&spectra[6][k].re));
  const float32x4_t y23 = vcombine_f32(vld1_f32(&spectra[5][k].re), vld1_f32(&spectra[4][k].re));
  const float32x4x2_t p = vuzpq_f32(vaddq_f32(x01, y01), vaddq_f32(x23, y23));
  const float32x4x2_t q = vuzpq_f32(vsubq_f32(x01, y01), vsubq_f32(x23, y23));
  const float32x4_t f = vdupq_n_f32(scale);  // (GCC takes vmulq_n's scalar through the stack)
  vst1q_f32(bin.pq[0], vmulq_f32(p.val[0], f));
  vst1q_f32(bin.pq[1], vmulq_f32(p.val[1], f));
  vst1q_f32(bin.pq[2], vmulq_f32(q.val[0], f));
  vst1q_f32(bin.pq[3], vmulq_f32(q.val[1], f));
}

// w: the bin's weights, [group][m][re, im][lane]. sums: per group g, the
// powers of directions g * 4 + lane (sums[2g]) and of their mirrors
// 180 - (g * 4 + lane) (sums[2g + 1]).
//
// In assembly: with intrinsics GCC loads each weight vector on its own and
// spends an add on each address; here two vectors come per load and the
// pointers move on by themselves. Operation for operation it is the loop of
// the other targets below (products rounded before their sums: vmla is the
// non-fused multiply-accumulate).
inline void scanKernel(const ScanBin &bin, const float *w, ScanVec *sums) {
  int count = SCAN_GROUPS;
  ScanVec *s = sums;
  asm volatile(
      "vld1.32 {d0-d3}, [%[p]]\n"  // Re P, Im P of microphones 0..3
      "vld1.32 {d4-d7}, [%[q]]\n"  // Re Q, Im Q
      "1:\n"
      "vld1.32 {d16-d19}, [%[w]]!\n"  // c0 s0
      "vld1.32 {d20-d23}, [%[w]]!\n"  // c1 s1
      "vmul.f32 q12, q8, d0[0]\n"     // ar
      "vmul.f32 q13, q8, d2[0]\n"     // ai
      "vmul.f32 q14, q9, d4[0]\n"     // br
      "vmul.f32 q15, q9, d6[0]\n"     // bi
      "vmla.f32 q12, q10, d0[1]\n"
      "vmla.f32 q13, q10, d2[1]\n"
      "vmla.f32 q14, q11, d4[1]\n"
      "vmla.f32 q15, q11, d6[1]\n"
      "vld1.32 {d16-d19}, [%[w]]!\n"  // c2 s2
      "vld1.32 {d20-d23}, [%[w]]!\n"  // c3 s3
      "vmla.f32 q12, q8, d1[0]\n"
      "vmla.f32 q13, q8, d3[0]\n"
      "vmla.f32 q14, q9, d5[0]\n"
      "vmla.f32 q15, q9, d7[0]\n"
      "vmla.f32 q12, q10, d1[1]\n"
      "vmla.f32 q13, q10, d3[1]\n"
      "vmla.f32 q14, q11, d5[1]\n"
      "vmla.f32 q15, q11, d7[1]\n"
      "vsub.f32 q8, q12, q15\n"  // A + jB
      "vadd.f32 q9, q13, q14\n"
      "vadd.f32 q10, q12, q15\n"  // A - jB
      "vsub.f32 q11, q13, q14\n"
      "vld1.32 {d24-d27}, [%[s]]\n"
      "vmla.f32 q12, q8, q8\n"
      "vmla.f32 q12, q9, q9\n"
      "vmla.f32 q13, q10, q10\n"
      "vmla.f32 q13, q11, q11\n"
      "vst1.32 {d24-d27}, [%[s]]!\n"
      "subs %[count], %[count], #1\n"
      "bne 1b\n"
      : [w] "+r"(w), [s] "+r"(s), [count] "+r"(count)
      : [p] "r"(bin.pq[0]), [q] "r"(bin.pq[2])
      : "cc", "memory", "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d16", "d17", "d18", "d19",
        "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27", "d28", "d29", "d30", "d31");
}

// Two bins in one sweep over the directions, a's then b's power added to each
// sum as scanKernel would in two calls; the sums are loaded and stored once
// per group instead of twice, and the loop turns half as often. Bin b's P and
// Q sit in d8-d15 (their lanes can be multiplier operands, like d0-d7).
inline void scanKernelPair(const ScanBin &a, const float *wa, const ScanBin &b, const float *wb,
                           ScanVec *sums) {
  int count = SCAN_GROUPS;
  ScanVec *s = sums;
  asm volatile(
      "vld1.32 {d0-d3}, [%[pa]]\n"   // bin a: Re P, Im P
      "vld1.32 {d4-d7}, [%[qa]]\n"   // Re Q, Im Q
      "vld1.32 {d8-d11}, [%[pb]]\n"  // bin b
      "vld1.32 {d12-d15}, [%[qb]]\n"
      "1:\n"
      "vld1.32 {d16-d19}, [%[wa]]!\n"  // c0 s0 of bin a
      "vmul.f32 q12, q8, d0[0]\n"      // ar
      "vmul.f32 q13, q8, d2[0]\n"      // ai
      "vmul.f32 q14, q9, d4[0]\n"      // br
      "vmul.f32 q15, q9, d6[0]\n"      // bi
      "vld1.32 {d16-d19}, [%[wa]]!\n"  // c1 s1
      "vmla.f32 q12, q8, d0[1]\n"
      "vmla.f32 q13, q8, d2[1]\n"
      "vmla.f32 q14, q9, d4[1]\n"
      "vmla.f32 q15, q9, d6[1]\n"
      "vld1.32 {d16-d19}, [%[wa]]!\n"  // c2 s2
      "vmla.f32 q12, q8, d1[0]\n"
      "vmla.f32 q13, q8, d3[0]\n"
      "vmla.f32 q14, q9, d5[0]\n"
      "vmla.f32 q15, q9, d7[0]\n"
      "vld1.32 {d16-d19}, [%[wa]]!\n"  // c3 s3
      "vmla.f32 q12, q8, d1[1]\n"
      "vmla.f32 q13, q8, d3[1]\n"
      "vmla.f32 q14, q9, d5[1]\n"
      "vmla.f32 q15, q9, d7[1]\n"
      "vld1.32 {d20-d23}, [%[s]]\n"  // the group's sums
      "vsub.f32 q8, q12, q15\n"      // A + jB
      "vadd.f32 q9, q13, q14\n"
      "vmla.f32 q10, q8, q8\n"
      "vmla.f32 q10, q9, q9\n"
      "vadd.f32 q8, q12, q15\n"  // A - jB
      "vsub.f32 q9, q13, q14\n"
      "vmla.f32 q11, q8, q8\n"
      "vmla.f32 q11, q9, q9\n"
      "vld1.32 {d16-d19}, [%[wb]]!\n"  // c0 s0 of bin b
      "vmul.f32 q12, q8, d8[0]\n"
      "vmul.f32 q13, q8, d10[0]\n"
      "vmul.f32 q14, q9, d12[0]\n"
      "vmul.f32 q15, q9, d14[0]\n"
      "vld1.32 {d16-d19}, [%[wb]]!\n"
      "vmla.f32 q12, q8, d8[1]\n"
      "vmla.f32 q13, q8, d10[1]\n"
      "vmla.f32 q14, q9, d12[1]\n"
      "vmla.f32 q15, q9, d14[1]\n"
      "vld1.32 {d16-d19}, [%[wb]]!\n"
      "vmla.f32 q12, q8, d9[0]\n"
      "vmla.f32 q13, q8, d11[0]\n"
      "vmla.f32 q14, q9, d13[0]\n"
      "vmla.f32 q15, q9, d15[0]\n"
      "vld1.32 {d16-d19}, [%[wb]]!\n"
      "vmla.f32 q12, q8, d9[1]\n"
      "vmla.f32 q13, q8, d11[1]\n"
      "vmla.f32 q14, q9, d13[1]\n"
      "vmla.f32 q15, q9, d15[1]\n"
      "vsub.f32 q8, q12, q15\n"
      "vadd.f32 q9, q13, q14\n"
      "vmla.f32 q10, q8, q8\n"
      "vmla.f32 q10, q9, q9\n"
      "vadd.f32 q8, q12, q15\n"
      "vsub.f32 q9, q13, q14\n"
      "vmla.f32 q11, q8, q8\n"
      "vmla.f32 q11, q9, q9\n"
      "vst1.32 {d20-d23}, [%[s]]!\n"
      "subs %[count], %[count], #1\n"
      "bne 1b\n"
      : [wa] "+r"(wa), [wb] "+r"(wb), [s] "+r"(s), [count] "+r"(count)
      : [pa] "r"(a.pq[0]), [qa] "r"(a.pq[2]), [pb] "r"(b.pq[0]), [qb] "r"(b.pq[2])
      : "cc", "memory", "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11",
        "d12", "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24",
        "d25", "d26", "d27", "d28", "d29", "d30", "d31");
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

inline void scanPrepareBin(ScanBin &bin, const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS], int k,
                           float scale) {
  for (int m = 0; m < SCAN_HALF_MICS; ++m) {
    const OrienComplex x = spectra[m][k], mirror = spectra[ORIEN_MIC_NUM - 1 - m][k];
    bin.pq[0][m] = scale * (x.re + mirror.re);
    bin.pq[1][m] = scale * (x.im + mirror.im);
    bin.pq[2][m] = scale * (x.re - mirror.re);
    bin.pq[3][m] = scale * (x.im - mirror.im);
  }
}

inline void scanKernel(const ScanBin &bin, const float *w, ScanVec *sums) {
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
    sums[2 * g] = (sums[2 * g] + yr * yr) + yi * yi;
    sums[2 * g + 1] = (sums[2 * g + 1] + zr * zr) + zi * zi;
  }
}

inline void scanKernelPair(const ScanBin &a, const float *wa, const ScanBin &b, const float *wb,
                           ScanVec *sums) {
  scanKernel(a, wa, sums);
  scanKernel(b, wb, sums);
}

#endif
