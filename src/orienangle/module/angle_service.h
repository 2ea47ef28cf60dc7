// The angle service thread: drains the capture pools into the angle module,
// or meters levels in test mode.
#pragma once
#include <cstdint>

#include "common/frame_geometry.h"
#include "orienangle/module/level_meter.h"

void *velquare_orienangle_proc(void *);
int velquare_orienangle_proc_start();  // sets angleProcRun and starts the thread; 0
int velquare_orienangle_proc_stop();   // clears angleProcRun; 0

constexpr int32_t ANGLE_SERVICE_MIC_FRAME_BYTES = FRAME_MIC_BYTES;
constexpr int32_t ANGLE_SERVICE_LINE_FRAME_BYTES = FRAME_LINEIN_BYTES;
constexpr int32_t ANGLE_SERVICE_REF_BYTES = FRAME_REF_BYTES;  // the left line-in channel of a frame
constexpr unsigned ANGLE_SERVICE_PAUSE_US = 2000;             // idle pause per loop turn

// The thread's working storage and meter, apart from the thread so that a
// test can drive single loop turns.
struct AngleService {
  uint8_t *micFrame;   // one microphone frame
  uint8_t *lineFrame;  // one stereo line-in frame
  uint8_t *refFrame;   // the left channel of lineFrame (3840 bytes, 1920 used)
  LevelMeter meter;
};

int angleServiceOpen(AngleService *svc);  // 0, or -1 when memory is short
void angleServiceClose(AngleService *svc);
// One loop turn without the pause: at most one frame from each pool, to the
// angle module or, in test mode, to the meter; sends a level report when due.
void angleServiceTurn(AngleService *svc);
