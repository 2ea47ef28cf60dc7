// The angle module's one record, its two frame rings and its worker.
//
// Producers (the angle service thread) append raw frames to the rings; the
// worker takes one reference block and one microphone frame per turn, runs
// the estimator and hands each position to the result callback.
#pragma once
#include <pthread.h>

#include <cstdint>

#include "common/frame_geometry.h"
#include "orienangle/module/angle_ring.h"
#include "orienangle/orienangle.h"

struct OrienAngleEstimator;

constexpr int32_t ANGLE_ALG_CHANNELS = FRAME_MIC_CHANNELS;  // planes the estimator works on
constexpr uint32_t ANGLE_MIC_FRAME_BYTES = FRAME_MIC_BYTES;
constexpr uint32_t ANGLE_SPKIN_BLOCK_BYTES = FRAME_REF_BYTES;  // 960 mono reference samples
constexpr uint32_t ANGLE_POSITION_BAD_INPUT = 255;  // process() result for unusable input
constexpr int ANGLE_RING_WRITE = 1;
constexpr int ANGLE_RING_READ = 2;
constexpr uint32_t ANGLE_WORKER_IDLE_US = 20000;       // one frame time when no frame is queued
constexpr size_t ANGLE_WORKER_STACK_BYTES = 4u << 20;  // the pipeline keeps ~140 KB on its stack

// Zeroed as a whole at every init. The worker reads the rings' set counters
// and advances the get counters; producers do the opposite (shared_word.h).
struct VelquareSpeach {
  uint32_t inited;  // 1 from the start of init until uninit; the worker runs while set
  int32_t micNum;
  int32_t frameSize;
  int32_t sampleRate;
  int32_t bitDepth;
  int32_t algChannels;
  float *micFloat;    // planar microphone frame, frameSize x 8 floats
  float *spkinFloat;  // reference frame, frameSize floats used
  OrienAngleEstimator *pstOienAngle;
  uint8_t *audioBuff;  // microphone ring
  uint32_t audioBuffInited;
  uint64_t setAudioBuffNum;
  uint64_t getAudioBuffNum;
  uint8_t *audioBuffSpkin;  // reference ring
  uint32_t audioBuffSpkinInited;
  uint64_t setAudioBuffSpkinNum;
  uint64_t getAudioBuffSpkinNum;
  pthread_t procThread;
  AngleResultCallback resultCallback;
};

extern VelquareSpeach gVelquareSpeach;

// Direct ring access by operation code (ANGLE_RING_WRITE / ANGLE_RING_READ),
// the length passed by pointer; any other code does nothing and gives 0.
int audioBuffOp(int op, uint8_t *data, const int32_t *len);
int audioBuffSpkinOp(int op, uint8_t *data, const int32_t *len);
// Stand-alone allocation of one ring each; 0, or -1 when memory is short.
int audioBuffCreate();
int audioBuffSpkinCreate();

// The worker thread; started by init, leaves when inited drops to 0.
void *velquare_orienAngle_proc(void *);
// Starts the worker on a stack large enough for the pipeline; 0 or the
// pthread_create error.
int angleWorkerStart();
// Clears inited and waits until the worker has left its loop, so the caller
// may free what the worker uses. Called on the worker itself (a callback that
// stops the module) it only clears inited.
void angleWorkerStop();
// True from angleWorkerStart until the worker has left.
bool angleWorkerActive();
