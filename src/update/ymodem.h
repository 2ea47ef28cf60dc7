// Reduced YMODEM receiver (CRC, 128-byte blocks) run by three threads.
#pragma once
#include <cstdint>

using YmodemSend = int (*)(const uint8_t *buf, int len);
using YmodemRecv = int (*)(uint8_t *buf, int len);
using YmodemDone = int (*)(int state);  // 1 file complete, 0 failed

int velquare_ymodem_start(YmodemSend send, YmodemRecv recv, YmodemDone done);
