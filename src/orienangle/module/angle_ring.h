// Byte rings of the angle module: the byte of stream position p lives at
// index p mod ANGLE_RING_BYTES. Each side moves only its own 64-bit counter,
// and the counter moves after the bytes (sharedLoad/sharedStore).
#pragma once
#include <cstdint>

#include "common/frame_geometry.h"

// Size of each of the module's two rings: 10 microphone frames, 80 reference blocks.
constexpr uint32_t ANGLE_RING_BYTES = 10 * FRAME_MIC_BYTES;
static_assert(ANGLE_RING_BYTES == 80 * FRAME_REF_BYTES, "the reference ring holds whole blocks");

// Bytes the writer may still append without overrunning the reader.
uint64_t angleRingFree(const uint64_t &setNum, const uint64_t &getNum);
// Writer side: copies len bytes in and advances setNum; the caller checked the room.
void angleRingPut(uint8_t *ring, uint64_t &setNum, const uint8_t *data, uint32_t len);
// Reader side: copies exactly len bytes out and advances getNum, or moves
// nothing and returns false when fewer than len bytes are queued.
bool angleRingTake(const uint8_t *ring, const uint64_t &setNum, uint64_t &getNum, uint8_t *out,
                   uint32_t len);
