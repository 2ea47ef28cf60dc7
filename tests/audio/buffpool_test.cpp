// The endpoint byte ring: all-or-nothing transfers, its exact capacity, the
// wrap at the ring's end, refusals and their messages.
#include "audio/buffpool.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

#include "audio/audioprocess.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

constexpr int32_t kMicFrameBytes = 15360;  // 960 samples x 8 channels x 2 bytes
const std::string kFullMessage = "audio is full, writeBuffPoolNum - readBuffPoolNum : 0\n";
const std::string kNotInit = "err: audio buff not init\n";

int rw(BuffPool *pool, int direction, void *buffer, int32_t len) { return buffpool_rw(pool, direction, buffer, &len); }
int put(BuffPool &pool, std::vector<uint8_t> &b) { return rw(&pool, BUFFPOOL_WRITE, b.data(), int32_t(b.size())); }
int take(BuffPool &pool, std::vector<uint8_t> &b) { return rw(&pool, BUFFPOOL_READ, b.data(), int32_t(b.size())); }

std::vector<uint8_t> pattern(size_t n, uint8_t seed) {
  std::vector<uint8_t> bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = uint8_t(seed + i * 7);
  return bytes;
}

class BuffPoolTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(buffpool_create(&pool_), 0); }
  void TearDown() override { buffpool_delete(&pool_); }
  BuffPool pool_{};
};

TEST(BuffPoolLifetime, NullAndDeletedPoolsAreRefusedWithTheirMessages) {
  uint8_t buffer[8] = {};
  CaptureStdout();
  EXPECT_EQ(buffpool_create(nullptr), -1);
  EXPECT_EQ(buffpool_delete(nullptr), -1);
  EXPECT_EQ(rw(nullptr, BUFFPOOL_READ, buffer, 8), -1);
  EXPECT_EQ(GetCapturedStdout(), "buffpool create err\nbuffpool delete err\nbuffpool write|read err\n");

  BuffPool pool{};
  ASSERT_EQ(buffpool_create(&pool), 0);
  std::vector<uint8_t> bytes = pattern(100, 1);
  ASSERT_EQ(put(pool, bytes), 0);
  ASSERT_EQ(buffpool_delete(&pool), 0);
  EXPECT_EQ(pool.data, nullptr);
  EXPECT_EQ(pool.writeBuffPoolNum, 100u);  // delete keeps the counters
  CaptureStdout();
  EXPECT_EQ(rw(&pool, BUFFPOOL_WRITE, buffer, 8), -1);
  EXPECT_EQ(rw(&pool, BUFFPOOL_READ, buffer, 8), -1);
  EXPECT_EQ(rw(&pool, 3, buffer, 8), -1);  // the flag is checked before the direction
  EXPECT_EQ(GetCapturedStdout(), kNotInit + kNotInit + kNotInit);
  ASSERT_EQ(buffpool_create(&pool), 0);  // a new life starts from zero
  EXPECT_EQ(pool.writeBuffPoolNum + pool.readBuffPoolNum, 0u);
  buffpool_delete(&pool);
}

TEST_F(BuffPoolTest, FullPoolRefusesOneByteUntilAnyRead) {
  std::vector<uint8_t> big = pattern(BUFFPOOL_SIZE - 10, 3);
  ASSERT_EQ(put(pool_, big), 0);
  std::vector<uint8_t> rest = pattern(11, 9);
  CaptureStdout();
  EXPECT_EQ(put(pool_, rest), -1);  // one byte beyond the free space drops the whole chunk
  EXPECT_EQ(GetCapturedStdout(), kFullMessage);
  rest.resize(10);
  ASSERT_EQ(put(pool_, rest), 0);  // exactly the free space: accepted, leaves the pool full
  EXPECT_EQ(pool_.writeBuffPoolNum - pool_.readBuffPoolNum, BUFFPOOL_SIZE);

  std::vector<uint8_t> one = {0x5a};
  CaptureStdout();
  EXPECT_EQ(put(pool_, one), -1);
  EXPECT_EQ(GetCapturedStdout(), kFullMessage);
  EXPECT_EQ(pool_.writeBuffPoolNum, BUFFPOOL_SIZE);

  std::vector<uint8_t> first(1);
  ASSERT_EQ(take(pool_, first), 0);
  EXPECT_EQ(first[0], big[0]);
  EXPECT_EQ(put(pool_, one), 0);
  EXPECT_EQ(pool_.data[0], 0x5a);  // into the ring slot the read just freed
}

TEST_F(BuffPoolTest, FrameReadNeedsTheWholeFrameAndMovesNothingOtherwise) {
  std::vector<uint8_t> almost = pattern(kMicFrameBytes - 1, 4);
  ASSERT_EQ(put(pool_, almost), 0);
  std::vector<uint8_t> frame(kMicFrameBytes, 0xee);
  CaptureStdout();
  EXPECT_EQ(take(pool_, frame), -1);
  EXPECT_EQ(pool_.readBuffPoolNum, 0u);
  EXPECT_EQ(frame[0], 0xee);

  std::vector<uint8_t> last = {0x77};
  ASSERT_EQ(put(pool_, last), 0);
  ASSERT_EQ(take(pool_, frame), 0);
  EXPECT_TRUE(std::equal(almost.begin(), almost.end(), frame.begin()));
  EXPECT_EQ(frame.back(), 0x77);
  EXPECT_EQ(take(pool_, last), -1);  // empty
  EXPECT_EQ(GetCapturedStdout(), "");  // reads are refused silently
}

TEST_F(BuffPoolTest, TransferAcrossTheRingEndContinuesAtIndexZero) {
  // 10 bytes before the ring's end, with counters that also cross 2^32:
  // the slot comes from the counter's low bits, the counters stay 64-bit.
  const uint64_t start = (uint64_t{1} << 32) - 10;
  pool_.writeBuffPoolNum = pool_.readBuffPoolNum = start;
  std::vector<uint8_t> bytes = pattern(100, 5);
  ASSERT_EQ(put(pool_, bytes), 0);
  EXPECT_EQ(pool_.data[BUFFPOOL_SIZE - 1], bytes[9]);
  EXPECT_EQ(pool_.data[0], bytes[10]);
  EXPECT_EQ(pool_.writeBuffPoolNum, start + 100);

  std::vector<uint8_t> back(100);
  ASSERT_EQ(take(pool_, back), 0);
  EXPECT_EQ(back, bytes);
  EXPECT_EQ(pool_.readBuffPoolNum, start + 100);
}

TEST_F(BuffPoolTest, NegativeLengthsAndUnknownDirectionsMoveNothing) {
  std::vector<uint8_t> bytes = pattern(64, 6);
  ASSERT_EQ(put(pool_, bytes), 0);
  uint8_t buffer[64] = {};
  CaptureStdout();
  EXPECT_EQ(rw(&pool_, BUFFPOOL_WRITE, buffer, -1), -1);  // counts as "full"
  EXPECT_EQ(GetCapturedStdout().rfind("audio is full, writeBuffPoolNum - readBuffPoolNum : ", 0), 0u);
  CaptureStdout();
  EXPECT_EQ(rw(&pool_, BUFFPOOL_READ, buffer, -1), -1);
  EXPECT_EQ(rw(&pool_, BUFFPOOL_READ, buffer, INT32_MIN), -1);
  EXPECT_EQ(rw(&pool_, 0, buffer, 8), 0);  // unknown direction: a no-op
  EXPECT_EQ(rw(&pool_, 3, buffer, 8), 0);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(pool_.writeBuffPoolNum, 64u);
  EXPECT_EQ(pool_.readBuffPoolNum, 0u);
}

// A writer and a reader thread push a numbered stream through the ring in
// uneven chunks, many times its size; every byte must arrive in order.
TEST_F(BuffPoolTest, StreamSurvivesConcurrentWriterAndReader) {
  constexpr uint64_t kTotal = 8ull * BUFFPOOL_SIZE;
  CaptureStdout();  // the writer runs into "audio is full" now and then
  std::thread writer([this] {
    std::mt19937 rng(1);
    std::vector<uint8_t> chunk(20480);
    for (uint64_t sent = 0; sent < kTotal;) {
      uint32_t n = std::min<uint64_t>(1 + rng() % chunk.size(), kTotal - sent);
      for (uint32_t i = 0; i < n; ++i) chunk[i] = uint8_t((sent + i) % 251);
      if (buffpoolWriteBytes(pool_, chunk.data(), int32_t(n)) == 0) sent += n;
      else std::this_thread::yield();
    }
  });
  std::vector<uint8_t> frame(kMicFrameBytes);
  uint64_t mismatches = 0;
  for (uint64_t received = 0; received < kTotal;) {
    uint32_t n = std::min<uint64_t>(frame.size(), kTotal - received);
    if (buffpoolReadBytes(pool_, frame.data(), int32_t(n)) != 0) {
      std::this_thread::yield();
      continue;
    }
    for (uint32_t i = 0; i < n; ++i) mismatches += frame[i] != uint8_t((received + i) % 251);
    received += n;
  }
  writer.join();
  GetCapturedStdout();
  EXPECT_EQ(mismatches, 0u);
}

TEST(BuffPoolByType, SelectsTheEndpointsPoolAndRefusesUnknownTypesAndDirections) {
  uint8_t buffer[16] = {};
  int32_t len = 16;
  auto byType = [&](uint32_t type, int direction) { return buffpool_rw_by_type(type, direction, buffer, &len); };
  BuffPool &line = velquare_audioprocess_endpoint(AUDIOPROCESS_LINEIN)->pool;
  BuffPool &mic = velquare_audioprocess_endpoint(AUDIOPROCESS_DIGITMIC)->pool;
  CaptureStdout();
  EXPECT_EQ(byType(AUDIOPROCESS_LINEIN, BUFFPOOL_WRITE), -1);
  EXPECT_EQ(byType(0, BUFFPOOL_WRITE), -1);
  EXPECT_EQ(byType(16, 0), -1);  // unknown type and direction: silent
  ASSERT_EQ(buffpool_create(&line) + buffpool_create(&mic), 0);
  EXPECT_EQ(byType(AUDIOPROCESS_LINEIN, 3), -1);  // unlike buffpool_rw, an error here, and silent
  EXPECT_EQ(GetCapturedStdout(), kNotInit + "buffpool write|read err\n");

  EXPECT_EQ(byType(AUDIOPROCESS_LINEIN, BUFFPOOL_WRITE), 0);
  EXPECT_EQ(line.writeBuffPoolNum, 16u);
  EXPECT_EQ(byType(AUDIOPROCESS_DIGITMIC, BUFFPOOL_READ), -1);  // the other pool is empty
  EXPECT_EQ(byType(AUDIOPROCESS_LINEIN, BUFFPOOL_READ), 0);
  EXPECT_EQ(line.readBuffPoolNum, 16u);
  buffpool_delete(&line);
  buffpool_delete(&mic);
}

}  // namespace
