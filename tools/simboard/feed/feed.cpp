#include "feed.h"

#include "sim/wav_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

namespace {

constexpr size_t kSampleBytes = 2;  // S16_LE
constexpr int64_t kNanosPerSecond = 1000000000;

void addNanos(timespec *t, int64_t nanos) {
  int64_t total = int64_t(t->tv_nsec) + nanos;
  t->tv_sec += time_t(total / kNanosPerSecond);
  t->tv_nsec = long(total % kNanosPerSecond);
}

bool writeAll(int fd, const uint8_t *data, size_t bytes) {
  // One write() per period: the pipe takes it whole unless the reader is far behind.
  while (bytes > 0) {
    ssize_t n = write(fd, data, bytes);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    bytes -= size_t(n);
  }
  return true;
}

}  // namespace

bool feedLoad(const std::string &path, FeedInput *input, std::string *error) {
  if (wavFileHasHeader(path)) {
    WavData wav;
    *error = wavRead(path, &wav);
    if (!error->empty()) return false;
    input->channels = unsigned(wav.channels);
    input->samples.resize(wav.samples.size() * kSampleBytes);
    memcpy(input->samples.data(), wav.samples.data(),
           input->samples.size());  // little-endian, as S16_LE
    return true;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  input->channels = 0;
  input->samples.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

uint64_t feedPeriods(int fd, const std::vector<uint8_t> &samples, unsigned channels,
                     const FeedOptions &options, const std::atomic<bool> *stop) {
  const size_t periodBytes = size_t(options.periodFrames) * channels * kSampleBytes;
  if (periodBytes == 0) return 0;
  const int64_t periodNanos =
      options.speed > 0
          ? int64_t(double(kNanosPerSecond) * options.periodFrames / FEED_RATE / options.speed)
          : 0;
  std::vector<uint8_t> period(periodBytes);
  timespec next;
  clock_gettime(CLOCK_MONOTONIC, &next);
  uint64_t written = 0;
  size_t pos = 0;
  for (;;) {
    if (stop && stop->load()) break;
    if (options.maxPeriods && written >= options.maxPeriods) break;
    if (pos >= samples.size()) {
      if (options.loop && !samples.empty()) {
        pos = 0;
      } else if (!options.zerosAfter) {
        break;
      }
    }
    size_t take = pos < samples.size() ? std::min(periodBytes, samples.size() - pos) : 0;
    if (take) memcpy(period.data(), &samples[pos], take);
    memset(period.data() + take, 0, periodBytes - take);
    pos += take;
    if (periodNanos) {
      clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
      addNanos(&next, periodNanos);
    }
    if (!writeAll(fd, period.data(), periodBytes)) break;
    written++;
  }
  return written;
}

int64_t feedFifo(const std::string &fifoPath, const std::vector<uint8_t> &samples,
                 unsigned channels, const FeedOptions &options, const std::atomic<bool> *stop) {
  int fd = open(fifoPath.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  (void)fcntl(fd, F_SETPIPE_SZ, int(FEED_PIPE_BYTES));
  uint64_t n = feedPeriods(fd, samples, channels, options, stop);
  close(fd);
  return int64_t(n);
}
