#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"

// Placeholder bodies, replaced by the serial port and the host protocol.
int32_t uartFd = -1;
int uartOpen(const char *, int, int, int, int, int) { return -1; }
int uartSend(const uint8_t *, int) { return -1; }
int uartRecv(uint8_t *, int) { return -1; }
int uartFlushInput() { return 0; }
int uartClose() { return 0; }

HostCtrl gHostCtrl;
uint8_t lastPosi = 230;
void *velquare_uart_proc(void *) { return nullptr; }
uint32_t onAngleResult(uint32_t) { return 0; }
int sendPosiFrame(uint16_t, uint8_t) { return 0; }
