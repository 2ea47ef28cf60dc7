#include "update/update_install.h"
#include "update/ymodem.h"

// Placeholder bodies, replaced by the firmware update.
int velquare_ymodem_start(YmodemSend, YmodemRecv, YmodemDone) { return 0; }
int velquare_ymodem_update_start() { return 0; }
int velquare_ymodem_finished_state(int) { return 0; }
