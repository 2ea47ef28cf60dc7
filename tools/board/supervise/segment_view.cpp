#include "segment_view.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstddef>

#include "lifecycle/state_segment.h"

void segmentViewDetach(SegmentView *view) {
  if (view->bytes) shmdt(const_cast<const uint8_t *>(view->bytes));
  view->bytes = nullptr;
  view->id = -1;
}

bool segmentViewRead(SegmentView *view, const char *keyPath, SegmentSample *out) {
  const key_t key = ftok(keyPath, SHM_PROJECT_ID);
  const int id = key == -1 ? -1 : shmget(key, 0, 0);
  shmid_ds info{};
  if (id == -1 || shmctl(id, IPC_STAT, &info) == -1 || info.shm_segsz < sizeof(StateSegment)) {
    segmentViewDetach(view);
    return false;
  }
  if (id != view->id) {
    segmentViewDetach(view);
    void *addr = shmat(id, nullptr, SHM_RDONLY);
    if (addr == reinterpret_cast<void *>(-1)) return false;
    view->id = id;
    view->bytes = static_cast<const volatile uint8_t *>(addr);
  }
  // Each word has one writer in the daemon and is read whole.
  out->heartbeat =
      *reinterpret_cast<const volatile uint32_t *>(view->bytes + offsetof(StateSegment, heartbeat));
  out->updating =
      *reinterpret_cast<const volatile int32_t *>(view->bytes + offsetof(StateSegment, updating));
  return true;
}
