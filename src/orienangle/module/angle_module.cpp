// The angle module's operations: init/uninit, the producers' two writes, the
// per-frame process call, and the direct ring operations.
#include "orienangle/module/angle_module.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/shared_word.h"
#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/estimator.h"
#include "orienangle/estimator/frame_convert.h"
#include "orienangle/module/angle_messages.h"
#include "orienangle/module/angle_ring.h"

// The estimator works on the capture side's frames; it keeps its own copy of
// their shape because it includes nothing outside itself.
static_assert(ORIEN_MIC_NUM == FRAME_MIC_CHANNELS && ORIEN_FRAME_SIZE == FRAME_SAMPLES,
              "the estimator's frame is the capture side's frame");

VelquareSpeach gVelquareSpeach;

namespace {

constexpr int32_t kSampleRates[] = {16000, 48000};
constexpr int32_t kBitDepths[] = {8, 16};

bool oneOf(int32_t value, const int32_t (&allowed)[2]) {
  return value == allowed[0] || value == allowed[1];
}

// The float frames hold at least one 8 x 960 frame whatever frameSize says:
// the conversion works on that fixed geometry.
size_t floatFrameBytes(int32_t frameSize) {
  int32_t samples = frameSize > ORIEN_FRAME_SIZE ? frameSize : ORIEN_FRAME_SIZE;
  return static_cast<size_t>(samples) * ANGLE_ALG_CHANNELS * sizeof(float);
}

// The producers' write: the same rules for both rings.
struct RingWrite {
  const char *func;
  int badLenNumber;
  int noDataNumber;
  const char *notInitLine;
  const char *fullFormat;
};

int ringWrite(const RingWrite &w, uint8_t *ring, uint32_t ringInited, uint64_t &setNum,
              const uint64_t &getNum, const uint8_t *data, int32_t len) {
  if (len < 1) {
    QV_ANGLE_ERR(w.func, w.badLenNumber, "InputDataLen[%d]\n", len);
    return -1;
  }
  if (data == nullptr) {
    QV_ANGLE_ERR(w.func, w.noDataNumber, "input_data[NULL]\n");
    return -1;
  }
  if (!ringInited || ring == nullptr) {
    puts(w.notInitLine);
    return 0;
  }
  if (static_cast<uint64_t>(len) > angleRingFree(setNum, getNum)) {
    printf(w.fullFormat, 0ULL);  // the message always shows 0; the frame is dropped
    return 0;
  }
  angleRingPut(ring, setNum, data, static_cast<uint32_t>(len));
  return 0;
}

int ringOp(int op, uint8_t *ring, uint32_t ringInited, uint64_t &setNum, uint64_t &getNum,
           const char *notInitLine, const char *fullFormat, uint8_t *data, const int32_t *len) {
  if (!ringInited || ring == nullptr) {
    puts(notInitLine);
    return -1;
  }
  int64_t n = *len;
  if (op == ANGLE_RING_WRITE) {
    if (n < 0 || static_cast<uint64_t>(n) > angleRingFree(setNum, getNum)) {
      printf(fullFormat, 0ULL);
      return -1;
    }
    angleRingPut(ring, setNum, data, static_cast<uint32_t>(n));
    return 0;
  }
  if (op == ANGLE_RING_READ) {
    if (n < 0) return -1;
    return angleRingTake(ring, setNum, getNum, data, static_cast<uint32_t>(n)) ? 0 : -1;
  }
  return 0;
}

int ringCreate(uint8_t *&ring, uint32_t &ringInited) {
  ring = static_cast<uint8_t *>(malloc(ANGLE_RING_BYTES));
  if (ring == nullptr) return -1;
  ringInited = 1;
  return 0;
}

}  // namespace

int velquare_orienAngle_init(int32_t micNum, int32_t frameSize, int32_t sampleRate,
                             int32_t bitDepth, AngleResultCallback resultCallback) {
  static const char kFunc[] = "velquare_orienAngle_init";
  // A worker of an instance that was never uninitialised must not see the
  // record zeroed under it.
  if (angleWorkerActive()) angleWorkerStop();

  VelquareSpeach &s = gVelquareSpeach;
  memset(&s, 0, sizeof s);
  s.micNum = micNum;
  s.frameSize = frameSize;
  s.sampleRate = sampleRate;
  s.bitDepth = bitDepth;
  s.algChannels = ANGLE_ALG_CHANNELS;
  sharedStore(s.inited, 1u);

  if (frameSize <= 0 || micNum <= 0 || !oneOf(sampleRate, kSampleRates) ||
      !oneOf(bitDepth, kBitDepths)) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_INIT_ARGS,
                 "micNum[%d], frameSize[%d], sampleRate[%d], bitDepth[%d]\n", micNum, frameSize,
                 sampleRate, bitDepth);
    return -1;
  }

  s.resultCallback = resultCallback;
  if (ringCreate(s.audioBuff, s.audioBuffInited) != 0) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_INIT_RING, "create audio buff err\n");
    return -1;
  }
  if (ringCreate(s.audioBuffSpkin, s.audioBuffSpkinInited) != 0) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_INIT_SPKIN_RING, "create audio Spkin buff err\n");
    return -1;
  }

  s.pstOienAngle = orienAngleEstimatorCreate();
  if (s.pstOienAngle == nullptr) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_INIT_ESTIMATOR, "pstOienAngle == NULL\n");
    return -1;
  }

  s.micFloat = static_cast<float *>(calloc(1, floatFrameBytes(frameSize)));
  if (s.micFloat == nullptr) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_INIT_MIC_FLOAT, "malloc == NULL\n");
    return -1;
  }
  s.spkinFloat = static_cast<float *>(calloc(1, floatFrameBytes(frameSize)));  // silent reference
  if (s.spkinFloat == nullptr) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_INIT_SPKIN_FLOAT, "malloc == NULL\n");
    return -1;
  }

  puts("velquare_orienAngle_init : ");
  printf("micNum     : %d\n", micNum);
  printf("frameSize  : %d\n", frameSize);
  printf("sampleRate : %d\n", sampleRate);
  printf("bitDepth   : %d\n", bitDepth);

  if (angleWorkerStart() != 0) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_INIT_THREAD, "pthread_cteate velquare_orienAngle_proc\n");
    return -1;
  }
  return 0;
}

int velquare_orienAngle_uninit() {
  VelquareSpeach &s = gVelquareSpeach;
  angleWorkerStop();
  if (s.pstOienAngle != nullptr) orienAngleEstimatorDestroy(s.pstOienAngle);
  free(s.micFloat);
  free(s.spkinFloat);
  free(s.audioBuff);
  free(s.audioBuffSpkin);
  // Counters stay as they are; a late write or a second uninit finds no ring.
  s.pstOienAngle = nullptr;
  s.micFloat = s.spkinFloat = nullptr;
  s.audioBuff = s.audioBuffSpkin = nullptr;
  s.audioBuffInited = s.audioBuffSpkinInited = 0;
  return 0;
}

int velquare_orienAngle_writeAudioData(const uint8_t *data, int32_t len) {
  static const RingWrite kMic = {"velquare_orienAngle_writeAudioData", ANGLE_ERR_WRITE_BAD_LEN,
                                 ANGLE_ERR_WRITE_NO_DATA, ANGLE_MSG_RING_NOT_INIT,
                                 ANGLE_MSG_RING_FULL};
  VelquareSpeach &s = gVelquareSpeach;
  return ringWrite(kMic, s.audioBuff, s.audioBuffInited, s.setAudioBuffNum, s.getAudioBuffNum, data,
                   len);
}

int velquare_orienAngle_writeAudioSpkinData(const uint8_t *data, int32_t len) {
  static const RingWrite kSpkin = {"velquare_orienAngle_writeAudioSpkinData",
                                   ANGLE_ERR_SPKIN_BAD_LEN, ANGLE_ERR_SPKIN_NO_DATA,
                                   ANGLE_MSG_SPKIN_NOT_INIT, ANGLE_MSG_SPKIN_FULL};
  VelquareSpeach &s = gVelquareSpeach;
  return ringWrite(kSpkin, s.audioBuffSpkin, s.audioBuffSpkinInited, s.setAudioBuffSpkinNum,
                   s.getAudioBuffSpkinNum, data, len);
}

uint32_t velquare_orienAngle_process(const uint8_t *data, int32_t len) {
  static const char kFunc[] = "velquare_orienAngle_process";
  if (data == nullptr) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_PROCESS_NO_DATA, "input_data == NULL\n");
    return ANGLE_POSITION_BAD_INPUT;
  }
  if (len < 1) {
    QV_ANGLE_ERR(kFunc, ANGLE_ERR_PROCESS_BAD_LEN, "input_data_len[%d]\n", len);
    return ANGLE_POSITION_BAD_INPUT;
  }
  VelquareSpeach &s = gVelquareSpeach;
  if (sharedLoad(s.inited) != 1 || s.pstOienAngle == nullptr || s.micFloat == nullptr)
    return ANGLE_NONE;

  // data holds one whole interleaved 8 x 960 frame; len is only checked above.
  orienAngleFrameToPlanar(data, s.micFloat);
  uint8_t position = ANGLE_NONE;
  uint8_t aux = ANGLE_NONE;
  angleFrameProcess(s.pstOienAngle, s.micFloat, s.micFloat, s.spkinFloat, &position, &aux);
  return position;
}

int audioBuffOp(int op, uint8_t *data, const int32_t *len) {
  VelquareSpeach &s = gVelquareSpeach;
  return ringOp(op, s.audioBuff, s.audioBuffInited, s.setAudioBuffNum, s.getAudioBuffNum,
                ANGLE_MSG_RING_NOT_INIT, ANGLE_MSG_RING_FULL, data, len);
}

int audioBuffSpkinOp(int op, uint8_t *data, const int32_t *len) {
  VelquareSpeach &s = gVelquareSpeach;
  return ringOp(op, s.audioBuffSpkin, s.audioBuffSpkinInited, s.setAudioBuffSpkinNum,
                s.getAudioBuffSpkinNum, ANGLE_MSG_SPKIN_NOT_INIT, ANGLE_MSG_SPKIN_FULL, data, len);
}

int audioBuffCreate() {
  return ringCreate(gVelquareSpeach.audioBuff, gVelquareSpeach.audioBuffInited);
}

int audioBuffSpkinCreate() {
  return ringCreate(gVelquareSpeach.audioBuffSpkin, gVelquareSpeach.audioBuffSpkinInited);
}
