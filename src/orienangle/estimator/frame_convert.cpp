#include "orienangle/estimator/frame_convert.h"

#include <cstring>

namespace {
inline float sampleAt(const uint8_t *bytes, int index) {
  int16_t s;
  memcpy(&s, bytes + 2 * index, sizeof s);  // the board and the PC are little-endian
  return static_cast<float>(s);
}
}  // namespace

void orienAngleFrameToPlanar(const uint8_t *interleaved, float *planar) {
  for (int c = 0; c < ORIEN_MIC_NUM; ++c)
    for (int i = 0; i < ORIEN_FRAME_SIZE; ++i)
      planar[ORIEN_FRAME_SIZE * c + i] = sampleAt(interleaved, ORIEN_MIC_NUM * i + c);
}

void orienAngleSpkinToFloat(const uint8_t *samples, float *out) {
  for (int i = 0; i < ORIEN_FRAME_SIZE; ++i) out[i] = sampleAt(samples, i);
}
