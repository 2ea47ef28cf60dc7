// The daemon's shared state segment seen from outside, read-only. The
// supervisor never creates the segment: it waits for the daemon to make it.
#pragma once
#include <cstdint>

struct SegmentView {
  int id = -1;  // segment attached, -1 none
  const volatile uint8_t *bytes = nullptr;
};

struct SegmentSample {
  uint32_t heartbeat;
  int32_t updating;  // 1 while a firmware update runs
};

// Reads the segment keyed on ftok(keyPath, 66), attaching it (again) when the
// key names another segment than the one attached (removed and made anew).
// False while no segment exists for the key.
bool segmentViewRead(SegmentView *view, const char *keyPath, SegmentSample *out);
void segmentViewDetach(SegmentView *view);
