// The angle module: argument checks, ring boundaries, the worker's hand-over
// of every frame to the callback, and the marker-switched input recordings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "common/shared_word.h"
#include "orienangle/module/angle_module.h"
#include "orienangle/orienangle.h"
#include "sim/noise.h"
#include "sim/plane_wave.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/sandbox.h"

using testing::HasSubstr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

constexpr int32_t kFrame = ANGLE_MIC_FRAME_BYTES;
constexpr int32_t kBlock = ANGLE_SPKIN_BLOCK_BYTES;
constexpr int32_t kRing = ANGLE_RING_BYTES;

uint32_t callbackCount = 0;
uint32_t lastPosition = 0;

uint32_t countingCallback(uint32_t position) {
  sharedStore(lastPosition, position);
  sharedStore(callbackCount, sharedLoad(callbackCount) + 1);
  return 0;
}

bool waitForCallbacks(uint32_t count, int seconds = 5) {
  for (int i = 0; i < 100 * seconds && sharedLoad(callbackCount) < count; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return sharedLoad(callbackCount) >= count;
}

std::vector<uint8_t> pattern(size_t bytes, uint8_t seed) {
  std::vector<uint8_t> v(bytes);
  for (size_t i = 0; i < bytes; ++i) v[i] = static_cast<uint8_t>(seed + i * 7);
  return v;
}

// Paces a writer so that the worker's ring never drops a frame.
void waitForRoom() {
  while (gVelquareSpeach.setAudioBuffNum - sharedLoad(gVelquareSpeach.getAudioBuffNum) >
         static_cast<uint64_t>(kRing - kFrame))
    usleep(1000);
}

class AngleModule : public testing::Test {
 protected:
  void SetUp() override {
    velquare_orienAngle_uninit();
    memset(&gVelquareSpeach, 0, sizeof gVelquareSpeach);
    sharedStore(callbackCount, 0u);
  }
  void TearDown() override { velquare_orienAngle_uninit(); }

  // Rings without a worker, so that nothing drains them behind the test.
  static void ringsOnly() {
    ASSERT_EQ(audioBuffCreate(), 0);
    ASSERT_EQ(audioBuffSpkinCreate(), 0);
  }
  static uint64_t micUsed() { return gVelquareSpeach.setAudioBuffNum - gVelquareSpeach.getAudioBuffNum; }
};

TEST_F(AngleModule, InitRejectsEachBadArgumentWithItsLineAndAcceptsBothRatesAndDepths) {
  struct Case { int32_t mic, frame, rate, bits; };
  const Case bad[] = {{8, 0, 48000, 16},  {8, -960, 48000, 16}, {0, 960, 48000, 16},
                      {8, 960, 44100, 16}, {8, 960, 48000, 24},  {-1, 960, 16000, 8}};
  for (const Case &c : bad) {
    CaptureStdout();
    EXPECT_EQ(velquare_orienAngle_init(c.mic, c.frame, c.rate, c.bits, nullptr), -1);
    char expected[160];
    snprintf(expected, sizeof expected,
             "------err: velquare_orienAngle_init 476 ---> micNum[%d], frameSize[%d], "
             "sampleRate[%d], bitDepth[%d]\n",
             c.mic, c.frame, c.rate, c.bits);
    EXPECT_EQ(GetCapturedStdout(), expected);
    EXPECT_EQ(gVelquareSpeach.inited, 1u) << "a failed init still counts as started";
    EXPECT_FALSE(angleWorkerActive());
  }
  // Both rates and depths are accepted; the parameters are printed.
  CaptureStdout();
  ASSERT_EQ(velquare_orienAngle_init(8, 480, 16000, 8, nullptr), 0);
  EXPECT_EQ(GetCapturedStdout(), "velquare_orienAngle_init : \nmicNum     : 8\nframeSize  : 480\n"
                                 "sampleRate : 16000\nbitDepth   : 8\n");
  EXPECT_EQ(gVelquareSpeach.algChannels, 8);
  EXPECT_TRUE(angleWorkerActive());
  velquare_orienAngle_uninit();
  EXPECT_FALSE(angleWorkerActive());
  EXPECT_EQ(velquare_orienAngle_init(8, 960, 48000, 16, nullptr), 0);
}

TEST_F(AngleModule, WriteChecksLengthThenDataThenRing) {
  uint8_t byte = 0;
  CaptureStdout();
  EXPECT_EQ(velquare_orienAngle_writeAudioData(&byte, 0), -1);
  EXPECT_EQ(velquare_orienAngle_writeAudioData(nullptr, 5), -1);
  EXPECT_EQ(velquare_orienAngle_writeAudioSpkinData(&byte, -3), -1);
  EXPECT_EQ(velquare_orienAngle_writeAudioSpkinData(nullptr, 5), -1);
  EXPECT_EQ(velquare_orienAngle_writeAudioData(&byte, 1), 0);
  EXPECT_EQ(velquare_orienAngle_writeAudioSpkinData(&byte, 1), 0);
  EXPECT_EQ(GetCapturedStdout(),
            "------err: velquare_orienAngle_writeAudioData 301 ---> InputDataLen[0]\n"
            "------err: velquare_orienAngle_writeAudioData 307 ---> input_data[NULL]\n"
            "------err: velquare_orienAngle_writeAudioSpkinData 322 ---> InputDataLen[-3]\n"
            "------err: velquare_orienAngle_writeAudioSpkinData 328 ---> input_data[NULL]\n"
            "err: audio buff not init Or Audio buff is NULL\n"
            "err: audio buff Spkin not init Or Audio buff is NULL\n");
}

TEST_F(AngleModule, RingTakesExactlyItsFreeSpaceAndDropsOneByteMoreWhole) {
  ringsOnly();
  std::vector<uint8_t> data = pattern(kRing, 3);
  EXPECT_EQ(velquare_orienAngle_writeAudioData(data.data(), kRing - 1), 0);
  EXPECT_EQ(velquare_orienAngle_writeAudioData(data.data(), 1), 0);
  EXPECT_EQ(micUsed(), static_cast<uint64_t>(kRing));

  CaptureStdout();
  EXPECT_EQ(velquare_orienAngle_writeAudioData(data.data(), 1), 0) << "a drop is not an error";
  EXPECT_EQ(GetCapturedStdout(),
            "audio is full, gVelquareSpeach.setAudioBuffNum - gVelquareSpeach.getAudioBuffNum : 0\n");
  EXPECT_EQ(micUsed(), static_cast<uint64_t>(kRing));

  // The reference ring follows the same rule.
  EXPECT_EQ(velquare_orienAngle_writeAudioSpkinData(data.data(), kRing), 0);
  CaptureStdout();
  velquare_orienAngle_writeAudioSpkinData(data.data(), kBlock);
  EXPECT_THAT(GetCapturedStdout(), HasSubstr("getAudioBuffSpkinNum : 0\n"));
  EXPECT_EQ(gVelquareSpeach.setAudioBuffSpkinNum, static_cast<uint64_t>(kRing));
}

TEST_F(AngleModule, FramesReadBackIntactAcrossTheRingEnd) {
  ringsOnly();
  std::vector<uint8_t> filler = pattern(kRing - 10, 0);
  std::vector<uint8_t> out(kFrame);
  int32_t fillerLen = static_cast<int32_t>(filler.size());
  ASSERT_EQ(audioBuffOp(ANGLE_RING_WRITE, filler.data(), &fillerLen), 0);
  ASSERT_EQ(audioBuffOp(ANGLE_RING_READ, filler.data(), &fillerLen), 0);

  std::vector<uint8_t> frame = pattern(kFrame, 42);  // starts 10 bytes before the end
  ASSERT_EQ(velquare_orienAngle_writeAudioData(frame.data(), kFrame), 0);
  int32_t len = kFrame;
  ASSERT_EQ(audioBuffOp(ANGLE_RING_READ, out.data(), &len), 0);
  EXPECT_EQ(out, frame);
  EXPECT_EQ(gVelquareSpeach.audioBuff[0], frame[10]) << "byte 10 of the frame wrapped to index 0";
}

TEST_F(AngleModule, RingOperationBoundaries) {
  std::vector<uint8_t> buf(kFrame);
  int32_t len = kFrame;
  CaptureStdout();
  EXPECT_EQ(audioBuffOp(ANGLE_RING_READ, buf.data(), &len), -1) << "no ring";
  EXPECT_EQ(audioBuffSpkinOp(ANGLE_RING_WRITE, buf.data(), &len), -1) << "no ring";
  GetCapturedStdout();

  ringsOnly();
  int32_t almost = kFrame - 1;
  EXPECT_EQ(audioBuffOp(ANGLE_RING_READ, buf.data(), &len), -1) << "empty ring";
  ASSERT_EQ(audioBuffOp(ANGLE_RING_WRITE, buf.data(), &almost), 0);
  EXPECT_EQ(audioBuffOp(ANGLE_RING_READ, buf.data(), &len), -1) << "one byte short";
  EXPECT_EQ(gVelquareSpeach.getAudioBuffNum, 0u);
  int32_t one = 1;
  ASSERT_EQ(audioBuffOp(ANGLE_RING_WRITE, buf.data(), &one), 0);
  EXPECT_EQ(audioBuffOp(ANGLE_RING_READ, buf.data(), &len), 0);
  EXPECT_EQ(micUsed(), 0u);

  int32_t negative = -1;
  CaptureStdout();
  EXPECT_EQ(audioBuffOp(ANGLE_RING_WRITE, buf.data(), &negative), -1);
  EXPECT_THAT(GetCapturedStdout(), HasSubstr("audio is full"));
  EXPECT_EQ(audioBuffOp(ANGLE_RING_READ, buf.data(), &negative), -1);
  EXPECT_EQ(audioBuffOp(7, buf.data(), &len), 0) << "unknown operation does nothing";
}

TEST_F(AngleModule, ProcessRefusesBadInputAndAnswersNoneBeforeInit) {
  std::vector<uint8_t> frame(kFrame);
  CaptureStdout();
  EXPECT_EQ(velquare_orienAngle_process(nullptr, kFrame), 255u);
  EXPECT_EQ(velquare_orienAngle_process(frame.data(), 0), 255u);
  EXPECT_EQ(GetCapturedStdout(),
            "------err: velquare_orienAngle_process 104 ---> input_data == NULL\n"
            "------err: velquare_orienAngle_process 109 ---> input_data_len[0]\n");
  EXPECT_EQ(velquare_orienAngle_process(frame.data(), kFrame), 230u);
  velquare_orienAngle_init(8, 0, 48000, 16, nullptr);  // inited, but no estimator
  EXPECT_EQ(velquare_orienAngle_process(frame.data(), kFrame), 230u);
}

// One callback per frame even without reference; uninit waits for the worker
// and later writes find no ring.
TEST_F(AngleModule, WorkerReportsEveryFrameOnceAndStopsOnUninit) {
  ASSERT_EQ(velquare_orienAngle_init(8, 960, 48000, 16, countingCallback), 0);
  std::vector<uint8_t> frame = pattern(kFrame, 9);
  for (int i = 0; i < 25; ++i) {  // more than the ring holds
    waitForRoom();
    ASSERT_EQ(velquare_orienAngle_writeAudioData(frame.data(), kFrame), 0);
  }
  ASSERT_TRUE(waitForCallbacks(25));
  usleep(50000);
  EXPECT_EQ(sharedLoad(callbackCount), 25u) << "one callback per frame, none extra";
  const uint32_t p = sharedLoad(lastPosition);
  EXPECT_TRUE(p <= 180 || p == 230 || p == 231) << p;

  for (int i = 0; i < 10; ++i) velquare_orienAngle_writeAudioData(frame.data(), kFrame);
  ASSERT_TRUE(waitForCallbacks(26));
  EXPECT_EQ(velquare_orienAngle_uninit(), 0);
  EXPECT_FALSE(angleWorkerActive());
  const uint32_t seen = sharedLoad(callbackCount);
  CaptureStdout();
  EXPECT_EQ(velquare_orienAngle_writeAudioData(frame.data(), kFrame), 0);
  EXPECT_EQ(GetCapturedStdout(), "err: audio buff not init Or Audio buff is NULL\n");
  usleep(40000);
  EXPECT_EQ(sharedLoad(callbackCount), seen);
  EXPECT_EQ(velquare_orienAngle_uninit(), 0) << "a second uninit is harmless";
}

uint32_t stoppingCallback(uint32_t) {
  velquare_orienAngle_uninit();
  return 0;
}

TEST_F(AngleModule, CallbackMayStopTheModuleFromTheWorker) {
  ASSERT_EQ(velquare_orienAngle_init(8, 960, 48000, 16, stoppingCallback), 0);
  std::vector<uint8_t> frame(kFrame);
  velquare_orienAngle_writeAudioData(frame.data(), kFrame);
  for (int i = 0; i < 200 && angleWorkerActive(); ++i) usleep(5000);
  EXPECT_FALSE(angleWorkerActive());
}

TEST_F(AngleModule, MarkerFileSwitchesTheInputRecordings) {
  Sandbox box;
  box.write("root/angleRecCapAudio", "");
  ASSERT_EQ(velquare_orienAngle_init(8, 960, 48000, 16, countingCallback), 0);
  std::vector<uint8_t> frameA = pattern(kFrame, 1), frameB = pattern(kFrame, 2);
  std::vector<uint8_t> block = pattern(kBlock, 3);
  velquare_orienAngle_writeAudioSpkinData(block.data(), kBlock);
  velquare_orienAngle_writeAudioData(frameA.data(), kFrame);
  velquare_orienAngle_writeAudioData(frameB.data(), kFrame);
  ASSERT_TRUE(waitForCallbacks(2));

  const uint8_t header[44] = {'R', 'I', 'F', 'F', 0xFC, 0xFF, 0xFF, 0xFF, 'W', 'A', 'V',
                              'E', 'f', 'm', 't', ' ',  0x10, 0,    0,    0,    1,   0,
                              8,   0,   0x80, 0xBB, 0, 0, 0x00, 0xE8, 0x03, 0,    16,  0,
                              16,  0,   'd', 'a', 't', 'a', 0xD8, 0xFF, 0xFF, 0xFF};
  std::string expected(reinterpret_cast<const char *>(header), sizeof header);
  expected.append(frameA.begin(), frameA.end());
  expected.append(frameB.begin(), frameB.end());
  EXPECT_EQ(box.read("tmp/angleRecCapAudioAlg.wav"), expected);
  EXPECT_EQ(box.read("tmp/angleRecCapAudioAlgLinein.wav"),
            std::string(block.begin(), block.end()))
      << "the reference dump carries no header";

  // Without the marker the next frame is not recorded; a new marker starts afresh.
  ASSERT_EQ(unlink(box.file("root/angleRecCapAudio").c_str()), 0);
  velquare_orienAngle_writeAudioData(frameA.data(), kFrame);
  ASSERT_TRUE(waitForCallbacks(3));
  EXPECT_EQ(box.read("tmp/angleRecCapAudioAlg.wav").size(), 44u + 2 * kFrame);
  box.write("root/angleRecCapAudio", "");
  velquare_orienAngle_writeAudioData(frameB.data(), kFrame);
  ASSERT_TRUE(waitForCallbacks(4));
  std::string fresh = box.read("tmp/angleRecCapAudioAlg.wav");
  ASSERT_EQ(fresh.size(), 44u + kFrame);
  EXPECT_EQ(fresh.substr(44), std::string(frameB.begin(), frameB.end()));
  velquare_orienAngle_uninit();
}

uint32_t firstNear = 0;  // callbacks until the first position within 2 degrees of the talker
uint32_t farPositions = 0;
uint32_t talkerIndex = 0;

uint32_t directionCallback(uint32_t position) {
  const uint32_t n = sharedLoad(callbackCount) + 1;
  if (position <= 180) {
    const bool near = position + 2 >= talkerIndex && position <= talkerIndex + 2;
    if (near && sharedLoad(firstNear) == 0) sharedStore(firstNear, n);
    if (!near) sharedStore(farPositions, sharedLoad(farPositions) + 1);
  }
  sharedStore(callbackCount, n);
  return 0;
}

// The whole chain below the service thread: interleaved 16-bit frames of a
// simulated talker (after 1 s of background noise) in, its direction out.
TEST_F(AngleModule, SimulatedTalkerDirectionReachesTheCallback) {
  constexpr int kTheta = -40, kLead = 50, kFrames = kLead + 150;
  const size_t n = kFrames * 960;
  talkerIndex = planeWaveAngleIndex(kTheta);
  std::vector<float> speech = makeVoicedSpeech(3.0, 48000, 3), source(n, 0.0f), planes(8 * n);
  std::copy(speech.begin(), speech.begin() + 150 * 960, source.begin() + kLead * 960);
  planeWaveRender(source.data(), n, kTheta, planes.data());
  for (int m = 0; m < 8; ++m) {
    std::vector<float> noise = makeNoise(NoiseColour::White, n, 20 + m);
    for (size_t i = 0; i < n; ++i) planes[m * n + i] = 0.1f * planes[m * n + i] + 3e-4f * noise[i];
  }
  ASSERT_EQ(velquare_orienAngle_init(8, 960, 48000, 16, directionCallback), 0);
  std::vector<int16_t> frame(960 * 8);
  for (int f = 0; f < kFrames; ++f) {
    for (int i = 0; i < 960 * 8; ++i) frame[i] = floatToS16(planes[(i % 8) * n + f * 960 + i / 8]);
    waitForRoom();
    velquare_orienAngle_writeAudioData(reinterpret_cast<uint8_t *>(frame.data()), kFrame);
  }
  ASSERT_TRUE(waitForCallbacks(kFrames, 120)) << "the estimator is slow under emulation";
  EXPECT_GT(sharedLoad(firstNear), 0u) << "the talker's direction was never reported";
  EXPECT_LT(sharedLoad(firstNear), kLead + 100u) << "about 1.1 s of speech is enough";
  EXPECT_EQ(sharedLoad(farPositions), 0u);
}

}  // namespace
