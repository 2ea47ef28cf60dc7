// GPIO watchdog: a line of the board's GPIO device pulsed once a second.
#pragma once

int velquare_hal_wdg_open();   // 0, or -1 when the device cannot be opened
int velquare_hal_wdg_start();  // starts velquare_hal_proc; 0
void *velquare_hal_proc(void *);
