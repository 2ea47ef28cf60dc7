#include "hostlink/host_protocol.h"

// Placeholder bodies, replaced by the host protocol.
HostCtrl gHostCtrl;
uint8_t lastPosi = 230;
void *velquare_uart_proc(void *) { return nullptr; }
uint32_t onAngleResult(uint32_t) { return 0; }
int sendPosiFrame(uint16_t, uint8_t) { return 0; }
