// Four floats at a time for the voice model's inner loops. On ARM these are
// NEON intrinsics (GCC keeps vector-extension float arithmetic off 32-bit
// NEON); elsewhere GCC vectors. Each lane runs the same multiply and add, each
// rounded on its own, so board and PC agree bit for bit on normal numbers.
#pragma once

#if defined(__ARM_NEON)
#include <arm_neon.h>

typedef float32x4_t VoiceVec;
inline VoiceVec voiceSplat(float x) { return vdupq_n_f32(x); }
inline VoiceVec voiceLoad(const float *p) { return vld1q_f32(p); }
inline void voiceStore(float *p, VoiceVec v) { vst1q_f32(p, v); }
inline VoiceVec voiceMul(VoiceVec a, VoiceVec b) { return vmulq_f32(a, b); }
// acc + a * b, the product rounded before the sum.
inline VoiceVec voiceMulAdd(VoiceVec acc, VoiceVec a, VoiceVec b) { return vmlaq_f32(acc, a, b); }

#else

typedef float VoiceVec __attribute__((vector_size(16)));
inline VoiceVec voiceSplat(float x) { return VoiceVec{x, x, x, x}; }
inline VoiceVec voiceLoad(const float *p) {
  VoiceVec v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}
inline void voiceStore(float *p, VoiceVec v) { __builtin_memcpy(p, &v, sizeof v); }
inline VoiceVec voiceMul(VoiceVec a, VoiceVec b) { return a * b; }
inline VoiceVec voiceMulAdd(VoiceVec acc, VoiceVec a, VoiceVec b) { return acc + a * b; }

#endif
