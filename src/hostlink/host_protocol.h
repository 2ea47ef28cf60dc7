// The host command protocol: 6-byte command frames in, position frames out.
#pragma once
#include <cstdint>

struct HostCtrl {
  int32_t isUpdating;
  int32_t testMode;
  int32_t uartOpened;
  int32_t posiRequested;
  uint32_t lastResendSecond;
  int32_t sendRetMode;
  uint32_t micDBmax;
  uint32_t micDBmin;
};

extern HostCtrl gHostCtrl;
extern uint8_t lastPosi;  // last position sent, 230 at start

void *velquare_uart_proc(void *);
uint32_t onAngleResult(uint32_t position);
int sendPosiFrame(uint16_t code, uint8_t position);
