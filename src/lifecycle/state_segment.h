// The 12-byte System V shared state segment read by a supervisor.
#pragma once
#include <cstdint>

// Project id of the segment's key: ftok(QV_SHM_KEY_PATH, 'B').
constexpr int SHM_PROJECT_ID = 66;

struct StateSegment {
  uint32_t heartbeat;  // +1 each second, main loop
  uint8_t position;    // last reported position, host link
  uint8_t unused[3];
  int32_t updating;  // 1 while a firmware update runs
};
static_assert(sizeof(StateSegment) == 12, "the segment layout is fixed");

int velquare_shm_create();         // 0, or -1 when no segment could be had
int velquare_shm_detach();         // never called by the daemon
StateSegment *velquare_shm_get();  // attach address, null before a successful create
