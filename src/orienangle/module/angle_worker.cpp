// The angle module's worker: one reference block and one microphone frame per
// turn, out of the rings, through the pipeline, to the result callback.
#include <unistd.h>

#include <cstdio>

#include "common/shared_word.h"
#include "common/thread_start.h"
#include "orienangle/estimator/frame_convert.h"
#include "orienangle/module/angle_dump.h"
#include "orienangle/module/angle_messages.h"
#include "orienangle/module/angle_module.h"
#include "orienangle/module/angle_ring.h"

namespace {

constexpr useconds_t kLeavePollUs = 1000;

// 1 from the worker's creation until it has left its loop for good.
uint32_t workerActive = 0;

// Takes the next reference block if one is queued; otherwise the float
// reference keeps the last block (or the zeros of init).
void takeReference(uint8_t *block, AngleDump *dump) {
  VelquareSpeach &s = gVelquareSpeach;
  if (!s.audioBuffSpkinInited || s.audioBuffSpkin == nullptr) {
    puts(ANGLE_MSG_SPKIN_NOT_INIT);
    return;
  }
  if (!angleRingTake(s.audioBuffSpkin, s.setAudioBuffSpkinNum, s.getAudioBuffSpkinNum, block,
                     ANGLE_SPKIN_BLOCK_BYTES))
    return;
  angleDumpBlock(dump, block, ANGLE_SPKIN_BLOCK_BYTES);
  if (s.spkinFloat != nullptr) orienAngleSpkinToFloat(block, s.spkinFloat);
}

// Takes the next microphone frame; false (after the idle pause) when none is queued.
bool takeFrame(uint8_t *frame, AngleDump *dump) {
  VelquareSpeach &s = gVelquareSpeach;
  if (!s.audioBuffInited || s.audioBuff == nullptr) {
    puts(ANGLE_MSG_RING_NOT_INIT);
    usleep(ANGLE_WORKER_IDLE_US);
    return false;
  }
  if (!angleRingTake(s.audioBuff, s.setAudioBuffNum, s.getAudioBuffNum, frame,
                     ANGLE_MIC_FRAME_BYTES)) {
    usleep(ANGLE_WORKER_IDLE_US);
    return false;
  }
  angleDumpBlock(dump, frame, ANGLE_MIC_FRAME_BYTES);
  return true;
}

}  // namespace

void *velquare_orienAngle_proc(void *) {
  pthread_detach(pthread_self());
  pthread_setname_np(pthread_self(), "qv-angle");
  uint8_t frame[ANGLE_MIC_FRAME_BYTES] = {};
  uint8_t block[ANGLE_SPKIN_BLOCK_BYTES] = {};
  AngleDump micDump = angleDumpMic();
  AngleDump spkinDump = angleDumpSpkin();

  while (sharedLoad(gVelquareSpeach.inited)) {
    takeReference(block, &spkinDump);
    if (!takeFrame(frame, &micDump)) continue;
    uint32_t position = velquare_orienAngle_process(frame, ANGLE_MIC_FRAME_BYTES);
    AngleResultCallback callback = gVelquareSpeach.resultCallback;
    if (callback != nullptr) callback(position);  // every frame, "no direction" included
  }

  angleDumpClose(&micDump);
  angleDumpClose(&spkinDump);
  sharedStore(workerActive, 0u);  // from here on nothing of the module is touched
  return nullptr;
}

int angleWorkerStart() {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, ANGLE_WORKER_STACK_BYTES);
  sharedStore(workerActive, 1u);
  int rc = startThread(&gVelquareSpeach.procThread, &attr, velquare_orienAngle_proc, nullptr,
                       "velquare_orienAngle_proc");
  pthread_attr_destroy(&attr);
  if (rc != 0) sharedStore(workerActive, 0u);
  return rc;
}

void angleWorkerStop() {
  sharedStore(gVelquareSpeach.inited, 0u);
  if (pthread_equal(pthread_self(), gVelquareSpeach.procThread)) return;
  while (sharedLoad(workerActive)) usleep(kLeavePollUs);
}

bool angleWorkerActive() { return sharedLoad(workerActive) != 0; }
