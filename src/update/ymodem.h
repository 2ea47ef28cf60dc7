// Reduced YMODEM receiver (CRC, 128-byte blocks) run by three threads.
#pragma once
#include <cstdint>

using YmodemSend = int (*)(const uint8_t *buf, int len);
using YmodemRecv = int (*)(uint8_t *buf, int len);
using YmodemDone = int (*)(int state);  // 1 file complete, 0 failed

// Starts the protocol, block reader and time-out threads (detached) and
// returns 0 at once. The file is written to QV_ROOT_DIR; done is called once.
int velquare_ymodem_start(YmodemSend send, YmodemRecv recv, YmodemDone done);

// Receiver threads still running (they end by themselves within about a
// second of the transfer's end); 0 when a new transfer may start.
int velquare_ymodem_threads_running();
