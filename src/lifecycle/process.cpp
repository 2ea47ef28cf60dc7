#include "lifecycle/process.h"

#include <cstdlib>

int32_t recycleCapture = 0;
int32_t startDelay = 0;
uint32_t runSeconds = 0;
int32_t inAborting = 0;
ReadiFunc readiFunc = snd_pcm_readi;
int32_t mainRun = 0;
int32_t angleProcRun = 0;

// Placeholder bodies, completed with the process lifecycle.
void program_exit(int status) { exit(status); }
void abort_signal_handler(int) {}
void recycle_signal_handler(int) { recycleCapture = 1; }
