// Firmware update: start on the host's command, install on completion.
#pragma once

// Seconds the host is given to start its YMODEM sender after the update
// command (sandbox builds may shorten it for tests, see update_install.cpp).
constexpr unsigned kUpdateSenderWaitSeconds = 10;
// Seconds between the "ok" reply to the host and the reboot.
constexpr unsigned kUpdateRebootDelaySeconds = 2;
// Exit status of a process ended by the power-cut seam (builds with
// QV_UPDATE_POWER_CUT_SEAM, see cmake/EdgeConfig.cmake).
constexpr int kUpdatePowerCutExitStatus = 86;

int velquare_ymodem_update_start();             // blocks 10 s, then starts the receiver
int velquare_ymodem_finished_state(int state);  // completion callback of the receiver
