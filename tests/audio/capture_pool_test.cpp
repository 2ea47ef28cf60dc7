// Both capture workers at once, fed known recordings through paced FIFOs:
// each endpoint's pool receives the recorded bytes, whole and in order.
#include <gtest/gtest.h>

#include <vector>

#include "common/shared_word.h"
#include "endpoint_fixture.h"
#include "support/eventually.h"
#include "support/output_capture.h"

namespace {

constexpr unsigned kPeriods = 12;  // a quarter of a second per endpoint

std::vector<uint8_t> recording(unsigned channels, uint8_t seed) {
  std::vector<uint8_t> bytes(size_t(kPeriods) * FEED_PERIOD_FRAMES * channels * 2);
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = uint8_t(i * 31 + i / 509 + seed);
  return bytes;
}

// The first `bytes` the pool receives, once they are all there (none if they never come).
std::vector<uint8_t> received(BuffPool &pool, size_t bytes) {
  std::vector<uint8_t> out(bytes);
  if (!eventually([&] { return sharedLoad(pool.writeBuffPoolNum) >= bytes; }, 10000)) return {};
  EXPECT_EQ(buffpoolReadBytes(pool, out.data(), int32_t(bytes)), 0);
  return out;
}

}  // namespace

using CaptureWorkers = AudioTest;

// The feeders go on with silence after the recordings (4x real time, paced).
TEST_F(CaptureWorkers, PoolsReceiveExactlyTheFedRecordingsInOrderForBothEndpoints) {
  const std::vector<uint8_t> mic = recording(8, 1), line = recording(2, 2);
  FeedOptions fast;
  fast.speed = 4;
  alsa.feed(3, 8, mic, fast);
  alsa.feed(2, 2, line, fast);
  const int mask = AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN;
  AudioEndpoint &micEp = gEndpoints[EP_DIGITMIC], &lineEp = gEndpoints[EP_LINEIN];
  stdoutOf([&] {
    ASSERT_EQ(velquare_audioprocess_init(mask), 0);
    velquare_audioprocess_proc_start(mask);
    EXPECT_TRUE(received(micEp.pool, mic.size()) == mic);
    EXPECT_TRUE(received(lineEp.pool, line.size()) == line);
    sharedStore(micEp.stop, 1);
    sharedStore(lineEp.stop, 1);
    velquare_audioprocess_uninit(mask);
  });
}
