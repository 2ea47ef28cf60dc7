#include "lifecycle/watchdog.h"

// Placeholder bodies, completed with the process lifecycle.
int velquare_hal_wdg_open() { return -1; }
int velquare_hal_wdg_start() { return 0; }
void *velquare_hal_proc(void *) { return nullptr; }
