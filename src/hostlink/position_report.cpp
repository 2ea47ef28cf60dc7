// Position reporting: the angle module's result callback decides when the
// host gets a position frame, and mirrors every position into the shared
// state segment.
#include <cstdio>

#include "common/shared_word.h"
#include "hostlink/host_frames.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/process.h"
#include "lifecycle/state_segment.h"

// Nothing is sent before the first real estimate unless the host asks.
uint8_t lastPosi = kPositionNone;

namespace {

constexpr uint32_t kResendSeconds = 60;  // the first minute repeats the position every second

bool lineFree() {
  return sharedLoad(gHostCtrl.isUpdating) == 0 && sharedLoad(gHostCtrl.testMode) == 0;
}

}  // namespace

int sendPosiFrame(uint16_t code, uint8_t position) {
  uint8_t frame[kPositionFrameSize];
  hostEncodePosition(code, position, frame);
  uartSend(frame, static_cast<int>(kPositionFrameSize));  // a short write drops the frame
  return 0;
}

uint32_t onAngleResult(uint32_t position) {
  if (lineFree()) {
    if (sharedLoad(gHostCtrl.uartOpened) == 0 && hostLineOpen() == 0)
      sharedStore(gHostCtrl.uartOpened, 1);
    if (position != sharedLoad(lastPosi) || sharedLoad(gHostCtrl.posiRequested) == 1) {
      printf("----------------------------> posi : %u\n", position);
      if (sharedLoad(gHostCtrl.uartOpened) == 1) {
        sharedStore(lastPosi, static_cast<uint8_t>(position));
        sharedStore(gHostCtrl.posiRequested, 0);
        sendPosiFrame(kPositionMessageCode, static_cast<uint8_t>(position));
      }
    }
  }

  const uint32_t seconds = sharedLoad(runSeconds);
  if (seconds < kResendSeconds && seconds != sharedLoad(gHostCtrl.lastResendSecond)) {
    sharedStore(gHostCtrl.lastResendSecond, seconds);
    if (lineFree()) sendPosiFrame(kPositionMessageCode, sharedLoad(lastPosi));
  }

  // The daemon attaches the segment before anything runs; only a process
  // without one (a tool, a test) gets here with none.
  if (StateSegment *segment = velquare_shm_get())
    sharedStore(segment->position, static_cast<uint8_t>(position));
  return 0;
}
