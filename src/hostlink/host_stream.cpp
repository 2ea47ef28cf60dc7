// The byte-stream side of the command thread, driven by any receive function.
#include <unistd.h>

#include <cstdio>

#include "common/shared_word.h"
#include "hostlink/host_command.h"
#include "hostlink/host_protocol.h"

namespace {
constexpr useconds_t kIdlePauseMicros = 100000;  // while the line is closed or updating
}

bool hostReadFrame(HostRecvFunc recv, uint8_t frame[kCommandFrameSize], const int32_t &run,
                   HostWaitFunc wait) {
  uint8_t byte;
  if (wait != nullptr && !wait(kHostWaitMillis)) return false;
  if (recv(&byte, 1) != 1) return false;
  printf("recv data : %x\n", byte);
  if (byte != kCommandStart) return false;
  frame[0] = byte;
  // Nothing bounds this wait: a partial frame holds the reader until the
  // rest arrives.
  int have = 1;
  while (have < static_cast<int>(kCommandFrameSize)) {
    if (!sharedLoad(run)) return false;
    if (wait != nullptr && !wait(kHostWaitMillis)) continue;
    const int got = recv(frame + have, static_cast<int>(kCommandFrameSize) - have);
    if (got > 0) have += got;
  }
  return true;
}

void hostCommandLoop(HostRecvFunc recv, HostExecuteFunc execute, const int32_t &run,
                     HostWaitFunc wait) {
  while (sharedLoad(run)) {
    if (sharedLoad(gHostCtrl.uartOpened) == 0 || sharedLoad(gHostCtrl.isUpdating) == 1) {
      usleep(kIdlePauseMicros);
      continue;
    }
    uint8_t frame[kCommandFrameSize];
    if (hostReadFrame(recv, frame, run, wait)) execute(hostDecodeFrame(frame));
  }
}
