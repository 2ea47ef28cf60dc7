#include "orienangle/angle_service.h"
#include "orienangle/orienangle.h"
#include "lifecycle/process.h"

// Placeholder bodies, replaced by the angle module and service thread.
int velquare_orienAngle_init(int32_t, int32_t, int32_t, int32_t, AngleResultCallback) { return 0; }
int velquare_orienAngle_uninit() { return 0; }
int velquare_orienAngle_writeAudioData(const uint8_t *, int32_t) { return 0; }
int velquare_orienAngle_writeAudioSpkinData(const uint8_t *, int32_t) { return 0; }
uint32_t velquare_orienAngle_process(const uint8_t *, int32_t) { return 230; }
void *velquare_orienangle_proc(void *) { return nullptr; }
int velquare_orienangle_proc_start() { angleProcRun = 1; return 0; }
int velquare_orienangle_proc_stop() { angleProcRun = 0; return 0; }
