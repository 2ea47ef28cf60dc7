// GPIO watchdog: a line of the board's GPIO device pulsed once a second.
#pragma once

// ioctl commands and arguments of the board's GPIO driver.
constexpr unsigned long GPIO_CMD_SETUP = 0;  // once after opening, argument GPIO_ARG_SETUP
constexpr unsigned long GPIO_ARG_SETUP = 6;
constexpr unsigned long GPIO_CMD_LINE = 4;  // drive a line: arguments below
constexpr unsigned long GPIO_ARG_WDG_FIRST_HALF = 17;
constexpr unsigned long GPIO_ARG_WDG_SECOND_HALF = 18;

int velquare_hal_wdg_open();   // 0, or -1 when the device cannot be opened
int velquare_hal_wdg_start();  // starts velquare_hal_proc; 0
void *velquare_hal_proc(void *);
