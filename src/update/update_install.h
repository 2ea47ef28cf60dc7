// Firmware update: start on the host's command, install on completion.
#pragma once

int velquare_ymodem_update_start();             // blocks 10 s, then starts the receiver
int velquare_ymodem_finished_state(int state);  // completion callback of the receiver
