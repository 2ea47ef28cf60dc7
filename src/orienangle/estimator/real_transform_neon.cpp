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
constexpr int kFirstQuarter = kPoints / 4;  // butterflies of the first pass: 512
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
  // First pass (n = 2048): per p, in separate arrays for vector loads.
  alignas(16) float first[6][kFirstQuarter];
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
      plan->first[2 * (m - 1)][p] = static_cast<float>(std::cos(angleOf(m * p, kPoints)));
      plan->first[2 * (m - 1) + 1][p] = static_cast<float>(std::sin(angleOf(m * p, kPoints)));
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

// One radix-4 butterfly on four lanes, the outputs turned by their twiddles:
//   y0 = (a + c) + (b + d)          y2 = w2 ((a + c) - (b + d))
//   y1 = w1 ((a - c) - j (b - d))   y3 = w3 ((a - c) + j (b - d))
// Plain vector variables throughout: GCC keeps them in registers (arrays or
// structures of vectors go through the stack on 32-bit ARM).
#define QV_RADIX4(ar, ai, br, bi, cr, ci, dr, di, TURN1, TURN2, TURN3)           \
  const float32x4_t apcR = vaddq_f32(ar, cr), apcI = vaddq_f32(ai, ci);            \
  const float32x4_t amcR = vsubq_f32(ar, cr), amcI = vsubq_f32(ai, ci);            \
  const float32x4_t bpdR = vaddq_f32(br, dr), bpdI = vaddq_f32(bi, di);            \
  const float32x4_t bmdR = vsubq_f32(br, dr), bmdI = vsubq_f32(bi, di);            \
  const float32x4_t y0r = vaddq_f32(apcR, bpdR), y0i = vaddq_f32(apcI, bpdI);      \
  const float32x4_t t1r = vaddq_f32(amcR, bmdI), t1i = vsubq_f32(amcI, bmdR);      \
  const float32x4_t t2r = vsubq_f32(apcR, bpdR), t2i = vsubq_f32(apcI, bpdI);      \
  const float32x4_t t3r = vsubq_f32(amcR, bmdI), t3i = vaddq_f32(amcI, bmdR);      \
  const float32x4_t y1r = TURN1##R(t1r, t1i), y1i = TURN1##I(t1r, t1i);            \
  const float32x4_t y2r = TURN2##R(t2r, t2i), y2i = TURN2##I(t2r, t2i);            \
  const float32x4_t y3r = TURN3##R(t3r, t3i), y3i = TURN3##I(t3r, t3i)

// (tr + j ti)(wr + j wi), each product rounded before its sum.
inline float32x4_t turnR(float32x4_t tr, float32x4_t ti, float32x4_t wr, float32x4_t wi) {
  return vmlsq_f32(vmulq_f32(tr, wr), ti, wi);
}
inline float32x4_t turnI(float32x4_t tr, float32x4_t ti, float32x4_t wr, float32x4_t wi) {
  return vmlaq_f32(vmulq_f32(tr, wi), ti, wr);
}

// Stores the columns of the 4 x 4 block whose rows are r0..r3: out[4i + k] = rk[i].
inline void store4x4(float *out, float32x4_t r0, float32x4_t r1, float32x4_t r2, float32x4_t r3) {
  const float32x4x2_t t01 = vtrnq_f32(r0, r1), t23 = vtrnq_f32(r2, r3);
  vst1q_f32(out, vcombine_f32(vget_low_f32(t01.val[0]), vget_low_f32(t23.val[0])));
  vst1q_f32(out + 4, vcombine_f32(vget_low_f32(t01.val[1]), vget_low_f32(t23.val[1])));
  vst1q_f32(out + 8, vcombine_f32(vget_high_f32(t01.val[0]), vget_high_f32(t23.val[0])));
  vst1q_f32(out + 12, vcombine_f32(vget_high_f32(t01.val[1]), vget_high_f32(t23.val[1])));
}

// The first pass (n = 2048, stride 1), four butterflies p..p+3 per turn: the
// input's even and odd samples come apart in the loads, the outputs 4p + k
// go together in the transposing stores.
void firstPass(const RealTransformPlan *plan, const float *in, float *yr, float *yi) {
  for (int p = 0; p < kFirstQuarter; p += 4) {
    const float32x4x2_t a = vld2q_f32(in + 2 * p);
    const float32x4x2_t b = vld2q_f32(in + 2 * (p + kFirstQuarter));
    const float32x4x2_t c = vld2q_f32(in + 2 * (p + 2 * kFirstQuarter));
    const float32x4x2_t d = vld2q_f32(in + 2 * (p + 3 * kFirstQuarter));
    const float32x4_t w1r = vld1q_f32(plan->first[0] + p), w1i = vld1q_f32(plan->first[1] + p);
    const float32x4_t w2r = vld1q_f32(plan->first[2] + p), w2i = vld1q_f32(plan->first[3] + p);
    const float32x4_t w3r = vld1q_f32(plan->first[4] + p), w3i = vld1q_f32(plan->first[5] + p);
#define QV_W1R(r, i) turnR(r, i, w1r, w1i)
#define QV_W1I(r, i) turnI(r, i, w1r, w1i)
#define QV_W2R(r, i) turnR(r, i, w2r, w2i)
#define QV_W2I(r, i) turnI(r, i, w2r, w2i)
#define QV_W3R(r, i) turnR(r, i, w3r, w3i)
#define QV_W3I(r, i) turnI(r, i, w3r, w3i)
    QV_RADIX4(a.val[0], a.val[1], b.val[0], b.val[1], c.val[0], c.val[1], d.val[0], d.val[1],
              QV_W1, QV_W2, QV_W3);
    store4x4(yr + 4 * p, y0r, y1r, y2r, y3r);
    store4x4(yi + 4 * p, y0i, y1i, y2i, y3i);
  }
}
#undef QV_W1R
#undef QV_W1I
#undef QV_W2R
#undef QV_W2I
#undef QV_W3R
#undef QV_W3I

// A later radix-4 pass: sequence length n, stride s (at least 4), vectors
// along q. The loop is written out in assembly: intrinsics leave GCC an add
// per load and store (32-bit NEON loads have no offset form), where the
// post-increment by register walks each array with one pointer. The
// arithmetic is the butterfly above, operation for operation.
template <int n, int s>
void laterPass(const Twiddle3 *tw, const float *xr, const float *xi, float *yr, float *yi) {
  constexpr int quarter = n / 4;
  constexpr int inStep = 4 * s * quarter, inBack = 16 - 3 * inStep;  // bytes
  constexpr int outStep = 4 * s, outBack = 16 - 3 * outStep;
  for (int p = 0; p < quarter; ++p) {
    const float *ar = xr + s * p, *ai = xi + s * p;
    float *outR = yr + 4 * s * p, *outI = yi + 4 * s * p;
    int count = s / 4;
    asm volatile(
        "vld1.32 {d0-d2}, [%[tw]]\n"
        "1:\n"
        "vld1.32 {d8-d9}, [%[ar]], %[inStep]\n"
        "vld1.32 {d10-d11}, [%[ai]], %[inStep]\n"
        "vld1.32 {d12-d13}, [%[ar]], %[inStep]\n"
        "vld1.32 {d14-d15}, [%[ai]], %[inStep]\n"
        "vld1.32 {d16-d17}, [%[ar]], %[inStep]\n"
        "vld1.32 {d18-d19}, [%[ai]], %[inStep]\n"
        "vld1.32 {d20-d21}, [%[ar]], %[inBack]\n"
        "vld1.32 {d22-d23}, [%[ai]], %[inBack]\n"
        "vadd.f32 q12, q4, q8\n"   // a + c
        "vsub.f32 q4, q4, q8\n"    // a - c
        "vadd.f32 q13, q5, q9\n"
        "vsub.f32 q5, q5, q9\n"
        "vadd.f32 q14, q6, q10\n"  // b + d
        "vsub.f32 q6, q6, q10\n"   // b - d
        "vadd.f32 q15, q7, q11\n"
        "vsub.f32 q7, q7, q11\n"
        "vadd.f32 q8, q12, q14\n"  // y0
        "vadd.f32 q9, q13, q15\n"
        "vst1.32 {d16-d17}, [%[outR]], %[outStep]\n"
        "vst1.32 {d18-d19}, [%[outI]], %[outStep]\n"
        "vadd.f32 q8, q4, q7\n"    // t1 = (a - c) - j (b - d)
        "vsub.f32 q9, q5, q6\n"
        "vsub.f32 q4, q4, q7\n"    // t3 = (a - c) + j (b - d)
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
#undef QV_RADIX4

// The last pass: radix 2, stride 1024.
void lastPass(const float *xr, const float *xi, float *yr, float *yi) {
  constexpr int half = kPoints / 2;
  for (int q = 0; q < half; q += 4) {
    const float32x4_t ar = vld1q_f32(xr + q), ai = vld1q_f32(xi + q);
    const float32x4_t br = vld1q_f32(xr + q + half), bi = vld1q_f32(xi + q + half);
    vst1q_f32(yr + q, vaddq_f32(ar, br));
    vst1q_f32(yi + q, vaddq_f32(ai, bi));
    vst1q_f32(yr + q + half, vsubq_f32(ar, br));
    vst1q_f32(yi + q + half, vsubq_f32(ai, bi));
  }
}

inline float32x4_t reversed(float32x4_t v) {
  const float32x4_t swapped = vrev64q_f32(v);
  return vcombine_f32(vget_high_f32(swapped), vget_low_f32(swapped));
}

}  // namespace

void realTransformRun(RealTransformPlan *plan, float *in, OrienComplex *out, int bins) {
  float *zr = plan->re[0], *zi = plan->im[0];
  float *yr = plan->re[1], *yi = plan->im[1];
  firstPass(plan, in, yr, yi);
  const Twiddle3 *tw = plan->later;
  laterPass<512, 4>(tw, yr, yi, zr, zi);
  laterPass<128, 16>(tw + 128, zr, zi, yr, yi);
  laterPass<32, 64>(tw + 160, yr, yi, zr, zi);
  laterPass<8, 256>(tw + 168, zr, zi, yr, yi);
  lastPass(yr, yi, zr, zi);
  zr[kPoints] = zr[0];
  zi[kPoints] = zi[0];

  // X[k] = (E - j W O) / 2, E = Z[k] + conj Z[M - k], O = Z[k] - conj Z[M - k],
  // W = exp(-2 pi i k / 4096); then the scale.
  constexpr float kScale = ORIEN_FFT_SCALE * 0.5f;
  int k = 0;
  for (; k + 4 <= bins && k + 4 <= kPoints; k += 4) {
    const float32x4_t ar = vld1q_f32(zr + k), ai = vld1q_f32(zi + k);
    const float32x4_t br = reversed(vld1q_f32(zr + kPoints - k - 3));
    const float32x4_t bi = reversed(vld1q_f32(zi + kPoints - k - 3));
    const float32x4_t er = vaddq_f32(ar, br), ei = vsubq_f32(ai, bi);
    const float32x4_t orr = vsubq_f32(ar, br), oi = vaddq_f32(ai, bi);
    const float32x4_t wr = vld1q_f32(plan->splitRe + k), wi = vld1q_f32(plan->splitIm + k);
    const float32x4_t woR = vmlsq_f32(vmulq_f32(wr, orr), wi, oi);
    const float32x4_t woI = vmlaq_f32(vmulq_f32(wr, oi), wi, orr);
    float32x4x2_t x;
    x.val[0] = vmulq_n_f32(vaddq_f32(er, woI), kScale);
    x.val[1] = vmulq_n_f32(vsubq_f32(ei, woR), kScale);
    vst2q_f32(&out[k].re, x);
  }
  for (; k < bins; ++k) {
    const float ar = zr[k], ai = zi[k], br = zr[kPoints - k], bi = zi[kPoints - k];
    const float er = ar + br, ei = ai - bi, orr = ar - br, oi = ai + bi;
    const float wr = plan->splitRe[k], wi = plan->splitIm[k];
    const float woR = wr * orr - wi * oi, woI = wr * oi + wi * orr;
    out[k].re = (er + woI) * kScale;
    out[k].im = (ei - woR) * kScale;
  }
}
