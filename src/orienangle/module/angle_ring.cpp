#include "orienangle/module/angle_ring.h"

#include <cstring>

#include "common/shared_word.h"

// The copies below move the same bytes as a byte loop over (counter + i) mod
// size would, in at most two pieces split at the ring's end.

uint64_t angleRingFree(const uint64_t &setNum, const uint64_t &getNum) {
  return ANGLE_RING_BYTES - (sharedLoad(setNum) - sharedLoad(getNum));
}

void angleRingPut(uint8_t *ring, uint64_t &setNum, const uint8_t *data, uint32_t len) {
  uint64_t set = sharedLoad(setNum);
  uint32_t start = static_cast<uint32_t>(set % ANGLE_RING_BYTES);
  uint32_t first = len < ANGLE_RING_BYTES - start ? len : ANGLE_RING_BYTES - start;
  memcpy(ring + start, data, first);
  memcpy(ring, data + first, len - first);
  sharedStore(setNum, set + len);
}

bool angleRingTake(const uint8_t *ring, const uint64_t &setNum, uint64_t &getNum, uint8_t *out,
                   uint32_t len) {
  uint64_t set = sharedLoad(setNum);
  uint64_t get = sharedLoad(getNum);
  if (get >= set || set - get < len) return false;
  uint32_t start = static_cast<uint32_t>(get % ANGLE_RING_BYTES);
  uint32_t first = len < ANGLE_RING_BYTES - start ? len : ANGLE_RING_BYTES - start;
  memcpy(out, ring + start, first);
  memcpy(out + first, ring, len - first);
  sharedStore(getNum, get + len);
  return true;
}
