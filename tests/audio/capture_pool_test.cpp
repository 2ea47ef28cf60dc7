// Both capture workers at once, fed known recordings through paced FIFOs:
// each endpoint's pool receives exactly the recorded bytes, in order.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "common/shared_word.h"
#include "endpoint_fixture.h"
#include "feed.h"

namespace {

constexpr unsigned kPeriods = 12;  // a quarter of a second per endpoint
using std::chrono::milliseconds;

std::vector<uint8_t> recording(unsigned channels, uint8_t seed) {
  std::vector<uint8_t> bytes(size_t(kPeriods) * FEED_PERIOD_FRAMES * channels * 2);
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = uint8_t(i * 31 + i / 509 + seed);
  return bytes;
}

// Feeds the recording (4x real time, still paced), then holds the FIFO open,
// so the capture waits for more, until destroyed.
struct Feeder {
  Feeder(std::string fifo, const std::vector<uint8_t> &bytes, unsigned channels)
      : thread([this, fifo, &bytes, channels] {
          int fd = open(fifo.c_str(), O_WRONLY);
          if (fd < 0) return;
          fcntl(fd, F_SETPIPE_SZ, int(FEED_PIPE_BYTES));
          FeedOptions options;
          options.speed = 4;
          feedPeriods(fd, bytes, channels, options);
          while (!release) std::this_thread::sleep_for(milliseconds(5));
          close(fd);
        }) {}
  ~Feeder() {
    release = true;
    thread.join();
  }
  std::atomic<bool> release{false};
  std::thread thread;
};

bool waitForBytes(const BuffPool &pool, uint64_t bytes) {
  for (int i = 0; i < 1000 && sharedLoad(pool.writeBuffPoolNum) < bytes; i++)
    std::this_thread::sleep_for(milliseconds(10));
  return sharedLoad(pool.writeBuffPoolNum) >= bytes;
}

std::vector<uint8_t> drain(BuffPool &pool, size_t bytes) {
  std::vector<uint8_t> out(bytes);
  EXPECT_EQ(buffpoolReadBytes(pool, out.data(), int32_t(bytes)), 0);
  return out;
}

}  // namespace

using CaptureWorkers = AudioTest;

TEST_F(CaptureWorkers, PoolsReceiveExactlyTheFedRecordingsInOrderForBothEndpoints) {
  const std::vector<uint8_t> mic = recording(8, 1), line = recording(2, 2);
  Feeder micFeeder(alsa.makeCaptureFifo(3), mic, 8);
  Feeder lineFeeder(alsa.makeCaptureFifo(2), line, 2);

  const int mask = AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN;
  testing::internal::CaptureStdout();
  ASSERT_EQ(velquare_audioprocess_init(mask), 0);
  velquare_audioprocess_proc_start(mask);
  AudioEndpoint &micEp = gEndpoints[EP_DIGITMIC], &lineEp = gEndpoints[EP_LINEIN];
  bool done = waitForBytes(micEp.pool, mic.size()) && waitForBytes(lineEp.pool, line.size());
  std::this_thread::sleep_for(milliseconds(50));  // nothing more may arrive
  uint64_t micWritten = sharedLoad(micEp.pool.writeBuffPoolNum);
  uint64_t lineWritten = sharedLoad(lineEp.pool.writeBuffPoolNum);
  EXPECT_TRUE(drain(micEp.pool, mic.size()) == mic);
  EXPECT_TRUE(drain(lineEp.pool, line.size()) == line);

  // Shut down: end the read loops, let the blocked reads return, tear down.
  sharedStore(micEp.stop, 1);
  sharedStore(lineEp.stop, 1);
  micFeeder.release = lineFeeder.release = true;
  velquare_audioprocess_uninit(mask);
  std::string out = testing::internal::GetCapturedStdout();
  ASSERT_TRUE(done) << out;
  EXPECT_EQ(micWritten, mic.size());
  EXPECT_EQ(lineWritten, line.size());
}
