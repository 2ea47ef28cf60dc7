// The angle service thread: the one reader of the digital microphone and
// line-in pools.
#include "orienangle/module/angle_service.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "audio/audioprocess.h"
#include "audio/buffpool.h"
#include "common/shared_word.h"
#include "common/thread_start.h"
#include "common/trace.h"
#include "hostlink/host_frames.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/process.h"
#include "orienangle/estimator/estimator_constants.h"
#include "orienangle/orienangle.h"

// The service hands the module's positions to the host link's result
// callback, which sends them as they are.
static_assert(kPositionNone == ANGLE_NONE && kPositionSpeakerPlaying == ANGLE_FAR_END,
              "the position byte's status codes are the estimator's");

namespace {

constexpr int kVersionMajor = 2;
constexpr int kVersionMinor = 1;
constexpr int kInitErrNumber = 1710;  // message number of the module init failure line
constexpr int32_t kMicNum = FRAME_MIC_CHANNELS;
constexpr int32_t kFrameSize = FRAME_SAMPLES;
constexpr int32_t kSampleRate = FRAME_SAMPLE_RATE;
constexpr int32_t kBitDepth = FRAME_SAMPLE_BITS;
constexpr int kLineChannels = FRAME_LINEIN_CHANNELS;

pthread_t serviceThread;

// Moves exactly one frame out of a pool, or nothing (pool missing: the pool
// says so; less than a frame queued: the bytes wait for the next turn).
bool takeFrame(uint32_t type, uint8_t *frame, int32_t bytes) {
  AudioEndpoint *ep = velquare_audioprocess_endpoint(type);
  return buffpool_rw(&ep->pool, BUFFPOOL_READ, frame, &bytes) == 0;
}

LevelThresholds currentThresholds() {
  return {sharedLoad(gHostCtrl.sendRetMode), sharedLoad(gHostCtrl.micDBmax),
          sharedLoad(gHostCtrl.micDBmin)};
}

void micTurn(AngleService *svc) {
  if (!takeFrame(AUDIOPROCESS_DIGITMIC, svc->micFrame, ANGLE_SERVICE_MIC_FRAME_BYTES)) return;
  if (!sharedLoad(gHostCtrl.testMode)) {
    levelMeterSkipMic(&svc->meter);
    velquare_orienAngle_writeAudioData(svc->micFrame, ANGLE_SERVICE_MIC_FRAME_BYTES);
    return;
  }
  levelMeterAddMic(&svc->meter, reinterpret_cast<const int16_t *>(svc->micFrame),
                   currentThresholds());
}

void lineTurn(AngleService *svc) {
  if (!takeFrame(AUDIOPROCESS_LINEIN, svc->lineFrame, ANGLE_SERVICE_LINE_FRAME_BYTES)) return;
  const int16_t *stereo = reinterpret_cast<const int16_t *>(svc->lineFrame);
  int16_t *left = reinterpret_cast<int16_t *>(svc->refFrame);
  for (int i = 0; i < kFrameSize; ++i) left[i] = stereo[kLineChannels * i];
  if (!sharedLoad(gHostCtrl.testMode)) {
    levelMeterSkipLine(&svc->meter);
    velquare_orienAngle_writeAudioSpkinData(svc->refFrame, ANGLE_SERVICE_REF_BYTES);
    return;
  }
  levelMeterAddLine(&svc->meter, left, currentThresholds());
}

void startHostLink() {
  if (hostLineOpen() == -1) {
    sharedStore(gHostCtrl.uartOpened, 0);
    return;
  }
  sharedStore(gHostCtrl.uartOpened, 1);
  pthread_t commandThread;
  // Without it the host's commands go unanswered; positions still go out.
  (void)startThread(&commandThread, nullptr, velquare_uart_proc, nullptr, "velquare_uart_proc");
  if (velquare_orienAngle_init(kMicNum, kFrameSize, kSampleRate, kBitDepth, onAngleResult) < 0) {
    printf("-->%s %d: velquare_orienAngle_init err\n", "velquare_orienangle_proc", kInitErrNumber);
    sharedStore(gHostCtrl.uartOpened, 0);
  }
}

}  // namespace

int angleServiceOpen(AngleService *svc) {
  levelMeterInit(&svc->meter);
  svc->micFrame = static_cast<uint8_t *>(malloc(ANGLE_SERVICE_MIC_FRAME_BYTES));
  svc->lineFrame = static_cast<uint8_t *>(malloc(ANGLE_SERVICE_LINE_FRAME_BYTES));
  svc->refFrame = static_cast<uint8_t *>(malloc(ANGLE_SERVICE_LINE_FRAME_BYTES));
  if (svc->micFrame && svc->lineFrame && svc->refFrame) return 0;
  angleServiceClose(svc);
  return -1;
}

void angleServiceClose(AngleService *svc) {
  free(svc->micFrame);
  free(svc->lineFrame);
  free(svc->refFrame);
  svc->micFrame = svc->lineFrame = svc->refFrame = nullptr;
}

void angleServiceTurn(AngleService *svc) {
  micTurn(svc);
  lineTurn(svc);
  uint8_t report[LEVEL_REPORT_BYTES];
  if (sharedLoad(gHostCtrl.testMode) && levelMeterTakeReport(&svc->meter, report))
    uartSend(report, LEVEL_REPORT_BYTES);
}

void *velquare_orienangle_proc(void *) {
  AngleService svc;
  int opened = angleServiceOpen(&svc);
  pthread_detach(pthread_self());
  pthread_setname_np(pthread_self(), "qv-service");
  if (opened != 0) {
    QV_TRACE_AS("velquare_orienangle_proc", "no memory for the frame buffers\n");
    return nullptr;
  }
  printf("---------------> verison : %d.%d\n", kVersionMajor, kVersionMinor);
  startHostLink();

  while (sharedLoad(angleProcRun)) {
    angleServiceTurn(&svc);
    usleep(ANGLE_SERVICE_PAUSE_US);
  }

  angleServiceClose(&svc);
  velquare_orienAngle_uninit();
  if (sharedLoad(gHostCtrl.uartOpened) == 1) uartClose();
  return nullptr;
}

int velquare_orienangle_proc_start() {
  sharedStore(angleProcRun, 1);
  serviceThread = pthread_t();
  (void)startThread(&serviceThread, nullptr, velquare_orienangle_proc, nullptr,
                    "velquare_orienangle_proc");
  return 0;
}

int velquare_orienangle_proc_stop() {
  sharedStore(angleProcRun, 0);
  return 0;
}
