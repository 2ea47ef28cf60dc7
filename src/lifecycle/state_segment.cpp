#include "lifecycle/state_segment.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include "edge_config.h"

// The segment outlives the process: nothing removes it, so a restarted
// daemon attaches to the same memory and its heartbeat goes on counting.
static int gShmId = -1;
static StateSegment *gShmAddr = nullptr;

int velquare_shm_create() {
  key_t key = ftok(QV_SHM_KEY_PATH, SHM_PROJECT_ID);
  if (key == -1) return -1;
  int id = shmget(key, sizeof(StateSegment), 0666 | IPC_CREAT);
  if (id == -1) {
    // An existing segment that does not fit the request (another size, for
    // one) is taken as it is.
    id = shmget(key, 0, 0);
    if (id == -1) return -1;
  }
  void *addr = shmat(id, nullptr, 0);
  if (addr == reinterpret_cast<void *>(-1)) return -1;
  gShmId = id;
  gShmAddr = static_cast<StateSegment *>(addr);
  return 0;
}

int velquare_shm_detach() {
  if (shmdt(gShmAddr) == -1) return -1;
  if (shmctl(gShmId, IPC_RMID, nullptr) == -1) return -1;
  return 0;
}

StateSegment *velquare_shm_get() { return gShmAddr; }
