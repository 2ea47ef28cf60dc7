// The board's fast transform, in NEON on 128-bit vectors: the 4096 real
// samples as 2048 complex ones (even samples real, odd imaginary), a
// self-sorting (Stockham) complex transform of five radix-4 passes and one
// radix-2 pass on split real and imaginary arrays, four values per vector,
// then the real-input split for the bins asked for only.
//
// Every product is rounded before its sum: vmla/vmls are the non-fused
// multiply-accumulate instructions (as VMUL then VADD or VSUB), so the build's
// -ffp-contract=off holds here too. Twiddles are computed in double and
// rounded once. The scale 1/4096 (a power of two) is applied last, together
// with the split's 1/2: exact on normal numbers.
#include <arm_neon.h>

#include <cmath>
#include <cstdlib>
#include <new>

#include "orienangle/estimator/real_transform.h"

namespace {

constexpr int kPoints = ORIEN_FFT_SIZE / 2;  // complex points: 2048 = 4^5 * 2
constexpr int kFirstQuarter = kPoints / 4;   // butterflies of the first pass: 512
// Complex points plus one: the split reads point M - k at k = 0 as point M.
constexpr int kBufferFloats = kPoints + 4;
// Twiddles of the passes after the first (sequence lengths 512, 128, 32, 8):
// one per butterfly index p, 128 + 32 + 8 + 2 in all.
constexpr int kLaterTwiddles = 128 + 32 + 8 + 2;

struct Twiddle3 {
  float w1r, w1i, w2r, w2i, w3r, w3i;
};

double angleOf(int p, int n) { return -2.0 * 3.14159265358979323846 * p / n; }

}  // namespace

struct RealTransformPlan {
  alignas(16) float re[2][kBufferFloats];
  alignas(16) float im[2][kBufferFloats];
  // First pass (n = 2048): per four butterflies p..p+3, w1, w2, w3 as
  // {re of the four, im of the four}, in the order the pass reads them.
  alignas(16) float first[kFirstQuarter / 4][3][2][4];
  Twiddle3 later[kLaterTwiddles];
  // Split: exp(-2 pi i k / 4096) for k = 0..2048 (and padding to a vector).
  alignas(16) float splitRe[ORIEN_SPECTRUM_BINS + 3];
  alignas(16) float splitIm[ORIEN_SPECTRUM_BINS + 3];
};

RealTransformPlan *realTransformCreate() {
  void *memory = std::aligned_alloc(alignof(RealTransformPlan), sizeof(RealTransformPlan));
  if (memory == nullptr) return nullptr;
  auto *plan = new (memory) RealTransformPlan;
  for (int p = 0; p < kFirstQuarter; ++p)
    for (int m = 1; m <= 3; ++m) {
      plan->first[p / 4][m - 1][0][p % 4] = static_cast<float>(std::cos(angleOf(m * p, kPoints)));
      plan->first[p / 4][m - 1][1][p % 4] = static_cast<float>(std::sin(angleOf(m * p, kPoints)));
    }
  int t = 0;
  for (int n = kPoints / 4; n >= 8; n /= 4)
    for (int p = 0; p < n / 4; ++p, ++t) {
      float w[6];
      for (int m = 1; m <= 3; ++m) {
        w[2 * (m - 1)] = static_cast<float>(std::cos(angleOf(m * p, n)));
        w[2 * (m - 1) + 1] = static_cast<float>(std::sin(angleOf(m * p, n)));
      }
      plan->later[t] = Twiddle3{w[0], w[1], w[2], w[3], w[4], w[5]};
    }
  for (int k = 0; k < ORIEN_SPECTRUM_BINS + 3; ++k) {
    plan->splitRe[k] = static_cast<float>(std::cos(angleOf(k, ORIEN_FFT_SIZE)));
    plan->splitIm[k] = static_cast<float>(std::sin(angleOf(k, ORIEN_FFT_SIZE)));
  }
  return plan;
}

void realTransformDestroy(RealTransformPlan *plan) {
  if (plan == nullptr) return;
  plan->~RealTransformPlan();
  std::free(plan);
}

namespace {

// Both radix-4 passes below compute, for four butterflies at once,
//   y0 = (a + c) + (b + d)          y2 = w2 ((a + c) - (b + d))
//   y1 = w1 ((a - c) - j (b - d))   y3 = w3 ((a - c) + j (b - d))
// with (tr + j ti)(wr + j wi) as tr wr - ti wi and tr wi + ti wr. They are
// written in assembly: with intrinsics GCC spends an add on every load and
// store address (32-bit NEON loads have no offset form) and moves vectors
// through the stack, where post-increments by register walk each array with
// one pointer.

// The first pass (n = 2048, stride 1), butterflies p..p+3 per turn: the
// input's even and odd samples come apart in the loads (vld2), and the
// outputs 4p + k of the four go out together in the interleaving stores (vst4).
void firstPass(const RealTransformPlan *plan, const float *in, float *yr, float *yi) {
  constexpr int step = 4 * 2 * kFirstQuarter, back = 32 - 3 * step;  // bytes
  const float *tw = &plan->first[0][0][0][0];
  int count = kFirstQuarter / 4;
  asm volatile(
      "1:\n"
      "vld2.32 {d8-d11}, [%[in]], %[step]\n"   // a: q4 re, q5 im
      "vld2.32 {d12-d15}, [%[in]], %[step]\n"  // b: q6, q7
      "vld2.32 {d16-d19}, [%[in]], %[step]\n"  // c: q8, q9
      "vld2.32 {d20-d23}, [%[in]], %[back]\n"  // d: q10, q11
      "vadd.f32 q12, q4, q8\n"                 // a + c
      "vsub.f32 q4, q4, q8\n"                  // a - c
      "vadd.f32 q13, q5, q9\n"
      "vsub.f32 q5, q5, q9\n"
      "vadd.f32 q14, q6, q10\n"  // b + d
      "vsub.f32 q6, q6, q10\n"   // b - d
      "vadd.f32 q15, q7, q11\n"
      "vsub.f32 q7, q7, q11\n"
      "vadd.f32 q0, q12, q14\n"  // y0
      "vadd.f32 q8, q13, q15\n"
      "vsub.f32 q12, q12, q14\n"  // t2
      "vsub.f32 q13, q13, q15\n"
      "vadd.f32 q14, q4, q7\n"  // t1
      "vsub.f32 q15, q5, q6\n"
      "vsub.f32 q4, q4, q7\n"  // t3
      "vadd.f32 q5, q5, q6\n"
      "vld1.32 {d12-d15}, [%[tw]]!\n"  // w1
      "vmul.f32 q1, q14, q6\n"
      "vmul.f32 q9, q14, q7\n"
      "vmls.f32 q1, q15, q7\n"
      "vmla.f32 q9, q15, q6\n"
      "vld1.32 {d12-d15}, [%[tw]]!\n"  // w2
      "vmul.f32 q2, q12, q6\n"
      "vmul.f32 q10, q12, q7\n"
      "vmls.f32 q2, q13, q7\n"
      "vmla.f32 q10, q13, q6\n"
      "vld1.32 {d12-d15}, [%[tw]]!\n"  // w3
      "vmul.f32 q3, q4, q6\n"
      "vmul.f32 q11, q4, q7\n"
      "vmls.f32 q3, q5, q7\n"
      "vmla.f32 q11, q5, q6\n"
      "vst4.32 {d0, d2, d4, d6}, [%[yr]]!\n"
      "vst4.32 {d1, d3, d5, d7}, [%[yr]]!\n"
      "vst4.32 {d16, d18, d20, d22}, [%[yi]]!\n"
      "vst4.32 {d17, d19, d21, d23}, [%[yi]]!\n"
      "subs %[count], %[count], #1\n"
      "bne 1b\n"
      : [in] "+r"(in), [tw] "+r"(tw), [yr] "+r"(yr), [yi] "+r"(yi), [count] "+r"(count)
      : [step] "r"(step), [back] "r"(back)
      : "cc", "memory", "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11",
        "d12", "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24",
        "d25", "d26", "d27", "d28", "d29", "d30", "d31");
}

// The part every butterfly of a later pass shares: a, b, c, d loaded along the
// sequence; q4, q5 = a - c, q6, q7 = b - d, q12, q13 = a + c, q14, q15 = b + d;
// y0 = (a + c) + (b + d) stored (each pair: real part, imaginary part).
#define QV_LATER_BUTTERFLY_SUMS_AND_Y0         \
  "vld1.32 {d8-d9}, [%[ar]], %[inStep]\n"      \
  "vld1.32 {d10-d11}, [%[ai]], %[inStep]\n"    \
  "vld1.32 {d12-d13}, [%[ar]], %[inStep]\n"    \
  "vld1.32 {d14-d15}, [%[ai]], %[inStep]\n"    \
  "vld1.32 {d16-d17}, [%[ar]], %[inStep]\n"    \
  "vld1.32 {d18-d19}, [%[ai]], %[inStep]\n"    \
  "vld1.32 {d20-d21}, [%[ar]], %[inBack]\n"    \
  "vld1.32 {d22-d23}, [%[ai]], %[inBack]\n"    \
  "vadd.f32 q12, q4, q8\n"                     \
  "vsub.f32 q4, q4, q8\n"                      \
  "vadd.f32 q13, q5, q9\n"                     \
  "vsub.f32 q5, q5, q9\n"                      \
  "vadd.f32 q14, q6, q10\n"                    \
  "vsub.f32 q6, q6, q10\n"                     \
  "vadd.f32 q15, q7, q11\n"                    \
  "vsub.f32 q7, q7, q11\n"                     \
  "vadd.f32 q8, q12, q14\n"                    \
  "vadd.f32 q9, q13, q15\n"                    \
  "vst1.32 {d16-d17}, [%[outR]], %[outStep]\n" \
  "vst1.32 {d18-d19}, [%[outI]], %[outStep]\n"

// A later radix-4 pass: sequence length n, stride s (at least 4), vectors along q.
template <int n, int s>
void laterPass(const Twiddle3 *tw, const float *xr, const float *xi, float *yr, float *yi) {
  constexpr int quarter = n / 4;
  constexpr int inStep = 4 * s * quarter, inBack = 16 - 3 * inStep;  // bytes
  constexpr int outStep = 4 * s, outBack = 16 - 3 * outStep;
  {
    // p = 0: all three twiddles are exactly 1 (and sin 0 = -0), so the
    // products would return t1, t2, t3 unchanged; leaving them out saves half
    // of the last radix-4 pass's multiplications.
    const float *ar = xr, *ai = xi;
    float *outR = yr, *outI = yi;
    int count = s / 4;
    asm volatile(
        "1:\n" QV_LATER_BUTTERFLY_SUMS_AND_Y0
        "vadd.f32 q8, q4, q7\n"  // y1 = t1
        "vsub.f32 q9, q5, q6\n"
        "vst1.32 {d16-d17}, [%[outR]], %[outStep]\n"
        "vst1.32 {d18-d19}, [%[outI]], %[outStep]\n"
        "vsub.f32 q12, q12, q14\n"  // y2 = t2
        "vsub.f32 q13, q13, q15\n"
        "vst1.32 {d24-d25}, [%[outR]], %[outStep]\n"
        "vst1.32 {d26-d27}, [%[outI]], %[outStep]\n"
        "vsub.f32 q4, q4, q7\n"  // y3 = t3
        "vadd.f32 q5, q5, q6\n"
        "vst1.32 {d8-d9}, [%[outR]], %[outBack]\n"
        "vst1.32 {d10-d11}, [%[outI]], %[outBack]\n"
        "subs %[count], %[count], #1\n"
        "bne 1b\n"
        : [ar] "+r"(ar), [ai] "+r"(ai), [outR] "+r"(outR), [outI] "+r"(outI), [count] "+r"(count)
        : [inStep] "r"(inStep), [inBack] "r"(inBack), [outStep] "r"(outStep), [outBack] "r"(outBack)
        : "cc", "memory", "d8", "d9", "d10", "d11", "d12", "d13", "d14", "d15", "d16", "d17", "d18",
          "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27", "d28", "d29", "d30",
          "d31");
  }
  for (int p = 1; p < quarter; ++p) {
    const float *ar = xr + s * p, *ai = xi + s * p;
    float *outR = yr + 4 * s * p, *outI = yi + 4 * s * p;
    int count = s / 4;
    asm volatile(
        "vld1.32 {d0-d2}, [%[tw]]\n"
        "1:\n" QV_LATER_BUTTERFLY_SUMS_AND_Y0
        "vadd.f32 q8, q4, q7\n"  // t1 = (a - c) - j (b - d)
        "vsub.f32 q9, q5, q6\n"
        "vsub.f32 q4, q4, q7\n"  // t3 = (a - c) + j (b - d)
        "vadd.f32 q5, q5, q6\n"
        "vsub.f32 q12, q12, q14\n"  // t2 = (a + c) - (b + d)
        "vsub.f32 q13, q13, q15\n"
        "vmul.f32 q10, q8, d0[0]\n"  // y1 = w1 t1
        "vmul.f32 q11, q8, d0[1]\n"
        "vmls.f32 q10, q9, d0[1]\n"
        "vmla.f32 q11, q9, d0[0]\n"
        "vst1.32 {d20-d21}, [%[outR]], %[outStep]\n"
        "vst1.32 {d22-d23}, [%[outI]], %[outStep]\n"
        "vmul.f32 q10, q12, d1[0]\n"  // y2 = w2 t2
        "vmul.f32 q11, q12, d1[1]\n"
        "vmls.f32 q10, q13, d1[1]\n"
        "vmla.f32 q11, q13, d1[0]\n"
        "vst1.32 {d20-d21}, [%[outR]], %[outStep]\n"
        "vst1.32 {d22-d23}, [%[outI]], %[outStep]\n"
        "vmul.f32 q10, q4, d2[0]\n"  // y3 = w3 t3
        "vmul.f32 q11, q4, d2[1]\n"
        "vmls.f32 q10, q5, d2[1]\n"
        "vmla.f32 q11, q5, d2[0]\n"
        "vst1.32 {d20-d21}, [%[outR]], %[outBack]\n"
        "vst1.32 {d22-d23}, [%[outI]], %[outBack]\n"
        "subs %[count], %[count], #1\n"
        "bne 1b\n"
        : [ar] "+r"(ar), [ai] "+r"(ai), [outR] "+r"(outR), [outI] "+r"(outI), [count] "+r"(count)
        : [tw] "r"(tw + p), [inStep] "r"(inStep), [inBack] "r"(inBack), [outStep] "r"(outStep),
          [outBack] "r"(outBack)
        : "cc", "memory", "d0", "d1", "d2", "d8", "d9", "d10", "d11", "d12", "d13", "d14", "d15",
          "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27", "d28",
          "d29", "d30", "d31");
  }
}

inline float32x4_t reversed(float32x4_t v) {
  const float32x4_t swapped = vrev64q_f32(v);
  return vcombine_f32(vget_high_f32(swapped), vget_low_f32(swapped));
}

}  // namespace

void realTransformRun(RealTransformPlan *plan, float *in, OrienComplex *out, int bins) {
  float *yr = plan->re[0], *yi = plan->im[0];
  float *zr = plan->re[1], *zi = plan->im[1];
  firstPass(plan, in, yr, yi);
  const Twiddle3 *tw = plan->later;
  laterPass<512, 4>(tw, yr, yi, zr, zi);
  laterPass<128, 16>(tw + 128, zr, zi, yr, yi);
  laterPass<32, 64>(tw + 160, yr, yi, zr, zi);
  laterPass<8, 256>(tw + 168, zr, zi, yr, yi);

  // The last pass (radix 2, stride 1024) only where the split reads it:
  // Z[k] = X[k] + X[k + 1024] and, for k > 1024, Z[k] = X[k - 1024] - X[k].
  // The split reads Z[2048 - k] as X[1024 - k] - X[2048 - k], so at k = 0 the
  // element after the end holds -X[0], which makes it X[1024] + X[0] = Z[0].
  constexpr int half = kPoints / 2;
  const float *xr = yr, *xi = yi;
  yr[kPoints] = -xr[0];
  yi[kPoints] = -xi[0];

  // X[k] = (E - j W O) / 2, E = Z[k] + conj Z[M - k], O = Z[k] - conj Z[M - k],
  // W = exp(-2 pi i k / 4096); then the scale.
  constexpr float kScale = ORIEN_FFT_SCALE * 0.5f;
  // (A vector scale: GCC takes vmulq_n's scalar through the stack.)
  const float32x4_t scale = vdupq_n_f32(kScale);
  int k = 0;
  // The loop's bound once, and the two interleaved outputs by vzip and plain
  // stores: GCC builds vst2q's register pair through the stack.
  const int vectorEnd = (bins < half ? bins : half) & ~3;
  for (; k < vectorEnd; k += 4) {
    const float32x4_t ar = vaddq_f32(vld1q_f32(xr + k), vld1q_f32(xr + k + half));
    const float32x4_t ai = vaddq_f32(vld1q_f32(xi + k), vld1q_f32(xi + k + half));
    const int m = half - k - 3;
    const float32x4_t br = reversed(vsubq_f32(vld1q_f32(xr + m), vld1q_f32(xr + m + half)));
    const float32x4_t bi = reversed(vsubq_f32(vld1q_f32(xi + m), vld1q_f32(xi + m + half)));
    const float32x4_t er = vaddq_f32(ar, br), ei = vsubq_f32(ai, bi);
    const float32x4_t orr = vsubq_f32(ar, br), oi = vaddq_f32(ai, bi);
    const float32x4_t wr = vld1q_f32(plan->splitRe + k), wi = vld1q_f32(plan->splitIm + k);
    const float32x4_t woR = vmlsq_f32(vmulq_f32(wr, orr), wi, oi);
    const float32x4_t woI = vmlaq_f32(vmulq_f32(wr, oi), wi, orr);
    const float32x4x2_t x =
        vzipq_f32(vmulq_f32(vaddq_f32(er, woI), scale), vmulq_f32(vsubq_f32(ei, woR), scale));
    vst1q_f32(&out[k].re, x.val[0]);
    vst1q_f32(&out[k + 2].re, x.val[1]);
  }
  // The rest one by one (none for the estimator's 500 bins).
  const auto z = [&](int i, const float *x) {
    return i == kPoints ? x[0] + x[half] : i < half ? x[i] + x[i + half] : x[i - half] - x[i];
  };
  for (; k < bins; ++k) {
    const float ar = z(k, xr), ai = z(k, xi), br = z(kPoints - k, xr), bi = z(kPoints - k, xi);
    const float er = ar + br, ei = ai - bi, orr = ar - br, oi = ai + bi;
    const float wr = plan->splitRe[k], wi = plan->splitIm[k];
    const float woR = wr * orr - wi * oi, woI = wr * oi + wi * orr;
    out[k].re = (er + woI) * kScale;
    out[k].im = (ei - woR) * kScale;
  }
}
