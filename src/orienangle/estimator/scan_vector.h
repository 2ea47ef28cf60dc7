// Lanes of the angle scan. The scan runs the same single-precision operations on
// SCAN_LANES directions at once, each lane exactly the operation sequence of the
// plain one-direction-at-a-time scan, so results are bit for bit the same.
//
// Lanes are GCC vector extensions, which give SSE2 on x86-64 and NEON on AArch64
// from one source; both vector units round every single-precision operation like
// the scalar unit. 32-bit ARM's NEON flushes subnormals to zero, and the
// compiler keeps float arithmetic out of it, so there the scan runs one lane in
// the VFP unit (the layout below serves both).
#pragma once
#include <cstring>

#if defined(__SSE2__) || defined(__aarch64__)
typedef float ScanVec __attribute__((vector_size(16)));
constexpr int SCAN_LANES = 4;

inline ScanVec scanSplat(float x) { return ScanVec{x, x, x, x}; }
inline float scanLane(ScanVec v, int lane) { return v[lane]; }
// SCAN_LANES consecutive floats; no alignment needed.
inline ScanVec scanLoad(const float *p) {
  ScanVec v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
#else
typedef float ScanVec;
constexpr int SCAN_LANES = 1;

inline ScanVec scanSplat(float x) { return x; }
inline float scanLane(ScanVec v, int) { return v; }
inline ScanVec scanLoad(const float *p) { return *p; }
#endif

