// The endpoint byte ring: all-or-nothing transfers, its exact capacity, the
// wrap at the ring's end, and a concurrent writer and reader.
#include "audio/buffpool.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

#include "support/output_capture.h"
#include "support/pattern.h"

namespace {

constexpr uint64_t kPoolBytes = 0x200000;  // 2 MiB

class BuffPoolTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(buffpool_create(&pool_), 0); }
  void TearDown() override { buffpool_delete(&pool_); }
  int rw(int direction, std::vector<uint8_t> &b, int32_t len = -2) {
    if (len == -2) len = int32_t(b.size());
    int r = 0;
    stdoutOf([&] { r = buffpool_rw(&pool_, direction, b.data(), &len); });
    return r;
  }
  int put(std::vector<uint8_t> b) { return rw(BUFFPOOL_WRITE, b); }
  BuffPool pool_{};
};

TEST_F(BuffPoolTest, TakesExactlyItsCapacityAndMovesWholeTransfersOrNothing) {
  ASSERT_EQ(put(pattern(kPoolBytes - 10, 3)), 0);
  EXPECT_EQ(put(pattern(11, 9)), -1);
  ASSERT_EQ(put(pattern(10, 9)), 0);  // exactly the free space: the pool is full
  EXPECT_EQ(put({0x5a}), -1);
  std::vector<uint8_t> tooMuch(kPoolBytes + 1, 0xee), first(1);
  EXPECT_EQ(rw(BUFFPOOL_READ, tooMuch), -1);  // a read takes all it asks for or nothing
  EXPECT_EQ(rw(BUFFPOOL_READ, first, -1), -1);
  ASSERT_EQ(rw(BUFFPOOL_READ, first), 0);
  EXPECT_EQ(first[0], 3);
  EXPECT_EQ(put({0x5a}), 0);
  EXPECT_EQ(pool_.data[0], 0x5a);  // into the slot the read just freed
}

TEST_F(BuffPoolTest, TransferAcrossTheRingEndContinuesAtIndexZero) {
  // 10 bytes before the end, with counters crossing 2^32: they stay 64-bit.
  const uint64_t start = (uint64_t{1} << 32) - 10;
  pool_.writeBuffPoolNum = pool_.readBuffPoolNum = start;
  std::vector<uint8_t> bytes = pattern(100, 5), back(100);
  ASSERT_EQ(put(bytes), 0);
  EXPECT_TRUE(pool_.data[kPoolBytes - 1] == bytes[9] && pool_.data[0] == bytes[10]);
  ASSERT_EQ(rw(BUFFPOOL_READ, back), 0);
  EXPECT_EQ(back, bytes);
  EXPECT_EQ(pool_.readBuffPoolNum, start + 100);
}

// A writer and a reader thread push a numbered stream through the ring in
// uneven chunks, many times its size; every byte must arrive in order.
TEST_F(BuffPoolTest, StreamSurvivesConcurrentWriterAndReader) {
  constexpr uint64_t kTotal = 8 * kPoolBytes;
  testing::internal::CaptureStdout();  // the writer runs into "audio is full" now and then
  std::thread writer([this] {
    std::mt19937 rng(1);
    std::vector<uint8_t> chunk(20480);
    for (uint64_t sent = 0; sent < kTotal;) {
      uint32_t n = std::min<uint64_t>(1 + rng() % chunk.size(), kTotal - sent);
      for (uint32_t i = 0; i < n; ++i) chunk[i] = uint8_t((sent + i) % 251);
      if (buffpoolWriteBytes(pool_, chunk.data(), int32_t(n)) == 0)
        sent += n;
      else
        std::this_thread::yield();
    }
  });
  std::vector<uint8_t> frame(15360);  // a microphone frame: 960 samples x 8 channels x 2 bytes
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
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(mismatches, 0u);
}

}  // namespace
