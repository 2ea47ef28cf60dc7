// The host serial line: raw 8N1, fixed speed, one process-wide descriptor.
#pragma once
#include <cstdint>

extern int32_t uartFd;  // -1 while closed

constexpr int HOST_LINE_BAUD = 115200;

int uartOpen(const char *path, int speed, int flowCtrl, int dataBits, int stopBits, int parity);
// Opens the host line (the build's serial device at HOST_LINE_BAUD, 8N1, raw):
// the one open used by every path that brings the line up. 0, or -1.
int hostLineOpen();
int uartSend(const uint8_t *buf, int len);  // bytes written, or -1
int uartRecv(uint8_t *buf, int len);        // bytes read, or -1 when nothing came within 100 us
// Sleeps until the line has bytes to read or `timeoutMillis` has passed: true
// when uartRecv should look (bytes waiting, or a line select cannot watch, in
// which case the whole time-out is slept first), false on time-out. Reads nothing.
bool uartWaitReadable(int timeoutMillis);
int uartFlushInput();
int uartClose();
