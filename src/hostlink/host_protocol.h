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

struct HostCommand;

// Command thread: detaches itself and reads host commands for ever.
void *velquare_uart_proc(void *);
// Carries out one decoded command (the command thread's executor).
void hostExecuteCommand(const HostCommand &command);
// Result callback of the angle module, once per processed frame: sends the
// position when it changed, when asked for, or once a second in the first
// minute, and mirrors it into the shared state segment. Returns 0.
uint32_t onAngleResult(uint32_t position);
// Builds and writes one position frame; 0.
int sendPosiFrame(uint16_t code, uint8_t position);
