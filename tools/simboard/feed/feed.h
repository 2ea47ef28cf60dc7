// Pacing of a recording into a FIFO read by the ALSA file plugin.
//
// The file plugin reads its input with one read() per snd_pcm_readi call and
// takes a short read as the end of the data (the rest of the period becomes
// silence), and it does not wait for data on its own. A feeder therefore
// writes exactly one period per write() on a real-time schedule; the blocking
// FIFO then paces the capture as a sound card would.
#pragma once
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

constexpr unsigned FEED_RATE = 48000;          // frames per second of the board
constexpr unsigned FEED_PERIOD_FRAMES = 2048;  // granted capture period of the digital microphones
constexpr size_t FEED_PIPE_BYTES =
    1 << 20;  // FIFO capacity asked for (the usual unprivileged maximum)

struct FeedOptions {
  unsigned channels = 0;  // frame = channels x 2 bytes (S16_LE); 0 = from the WAV header
  unsigned periodFrames = FEED_PERIOD_FRAMES;
  double speed = 1.0;       // 2.0 feeds twice as fast as real time; 0 feeds as fast as read
  bool loop = false;        // start again at the end of the recording
  bool zerosAfter = false;  // after the end, keep feeding silent periods instead of closing
  uint64_t maxPeriods = 0;  // stop after this many periods (0 = no limit)
};

struct FeedInput {
  unsigned channels = 0;         // 0 when a raw file was loaded without a channel count
  std::vector<uint8_t> samples;  // interleaved S16_LE
};

// Loads a WAV file (data chunk up to its size, or to the end of the file when
// the size is a placeholder larger than the file) or, for any other file, the
// raw bytes. Returns false with a message in *error when the file is unusable.
bool feedLoad(const std::string &path, FeedInput *input, std::string *error);

// Writes `samples` into the open descriptor, one whole period per write, on
// the schedule of the options. A final partial period is padded with zeros.
// Returns the number of periods written; stops early when `stop` becomes true
// or the reader went away (EPIPE).
uint64_t feedPeriods(int fd, const std::vector<uint8_t> &samples, unsigned channels,
                     const FeedOptions &options, const std::atomic<bool> *stop = nullptr);

// Opens the FIFO for writing (blocks until the reader opens it), enlarges its
// capacity, feeds and closes it. Returns the periods written, -1 when the FIFO
// could not be opened.
int64_t feedFifo(const std::string &fifoPath, const std::vector<uint8_t> &samples,
                 unsigned channels, const FeedOptions &options,
                 const std::atomic<bool> *stop = nullptr);
