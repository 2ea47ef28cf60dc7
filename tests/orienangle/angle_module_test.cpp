// The angle module: its two rings (sized as the system requires, not as the
// code says), the worker's hand-over of every frame to the callback, the
// reference taken before the frame.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "common/shared_word.h"
#include "orienangle/module/angle_module.h"
#include "orienangle/orienangle.h"
#include "support/eventually.h"
#include "support/output_capture.h"
#include "support/pattern.h"

namespace {

constexpr int32_t kFrame = 15360;  // 960 samples x 8 channels x 2 bytes
constexpr int32_t kBlock = 1920;   // 960 reference samples x 2 bytes
constexpr int32_t kRing = 153600;  // both rings: 10 microphone frames, 80 reference blocks

uint32_t callbackCount = 0;

uint32_t countingCallback(uint32_t) {
  sharedStore(callbackCount, sharedLoad(callbackCount) + 1);
  return 0;
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

  static int write(const std::vector<uint8_t> &d, int32_t n, int (*to)(const uint8_t *, int32_t)) {
    int r = 0;
    stdoutOf([&] { r = to(d.data(), n); });
    return r;
  }
};

// Both rings, without a worker so that nothing drains them behind the test.
TEST_F(AngleModule, RingTakesExactlyItsFreeSpaceAndDropsOneByteMoreWhole) {
  ASSERT_TRUE(audioBuffCreate() == 0 && audioBuffSpkinCreate() == 0);
  std::vector<uint8_t> data = pattern(kRing, 3);
  for (auto to : {velquare_orienAngle_writeAudioData, velquare_orienAngle_writeAudioSpkinData}) {
    EXPECT_TRUE(write(data, kRing - 1, to) == 0 && write(data, 1, to) == 0);
    EXPECT_EQ(write(data, 1, to), 0) << "a drop is not an error";
  }
  EXPECT_EQ(gVelquareSpeach.setAudioBuffNum, static_cast<uint64_t>(kRing));
  EXPECT_EQ(gVelquareSpeach.setAudioBuffSpkinNum, static_cast<uint64_t>(kRing));
}

// One callback per frame even without reference; uninit waits for the worker,
// also with frames still queued.
TEST_F(AngleModule, WorkerReportsEveryFrameOnceAndStopsOnUninit) {
  ASSERT_EQ(velquare_orienAngle_init(8, 960, 48000, 16, countingCallback), 0);
  std::vector<uint8_t> frame = pattern(kFrame, 9);
  for (int i = 0; i < 25; ++i) {  // more than the ring holds
    waitForRoom();
    ASSERT_EQ(velquare_orienAngle_writeAudioData(frame.data(), kFrame), 0);
  }
  ASSERT_TRUE(eventually([] { return sharedLoad(callbackCount) >= 25u; }));
  usleep(50000);
  EXPECT_EQ(sharedLoad(callbackCount), 25u) << "one callback per frame, none extra";
  for (int i = 0; i < 10; ++i) write(frame, kFrame, velquare_orienAngle_writeAudioData);
  EXPECT_EQ(velquare_orienAngle_uninit(), 0);
  EXPECT_FALSE(angleWorkerActive());
  EXPECT_EQ(velquare_orienAngle_uninit(), 0) << "a second uninit is harmless";
}

// Each turn takes a reference block before looking for a frame, so blocks
// queued ahead of their frames are consumed at once and a frame is processed
// with the newest reference (taken after the frame, it would lag one frame).
TEST_F(AngleModule, ReferenceBlocksAreTakenEvenWhileNoFrameIsQueued) {
  ASSERT_EQ(velquare_orienAngle_init(8, 960, 48000, 16, countingCallback), 0);
  std::vector<uint8_t> block = pattern(2 * kBlock, 4);
  ASSERT_EQ(velquare_orienAngle_writeAudioSpkinData(block.data(), 2 * kBlock), 0);
  EXPECT_TRUE(eventually([] {
    return sharedLoad(gVelquareSpeach.getAudioBuffSpkinNum) == 2u * kBlock;
  })) << sharedLoad(gVelquareSpeach.getAudioBuffSpkinNum);
  EXPECT_EQ(sharedLoad(callbackCount), 0u);
}

}  // namespace
