#include "lifecycle/state_segment.h"

// Placeholder bodies, completed with the process lifecycle.
int velquare_shm_create() { return -1; }
int velquare_shm_detach() { return -1; }
StateSegment *velquare_shm_get() { return nullptr; }
