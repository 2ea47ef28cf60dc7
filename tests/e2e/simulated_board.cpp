#include "simulated_board.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>

#include "feed.h"
#include "sim/noise.h"
#include "sim/plane_wave.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"

namespace {

constexpr int kRate = 48000;
constexpr int kMics = 8;
constexpr int kDigitMicDevice = 3;  // hw:0,3
constexpr int kLineDevice = 2;      // hw:0,2
constexpr unsigned kMicPeriod = 2048;
constexpr unsigned kLinePeriod = 1024;
constexpr float kTalkerPeak = 0.5f;       // the synthetic talker's own peak, of full scale
constexpr float kNoiseFloor = 3e-4f;      // about -70 dB of full scale, independent per microphone
constexpr size_t kPositionBytes = 6;
constexpr size_t kLevelBytes = 11;

// A pseudo-terminal pair in raw mode; false when none could be had.
bool openRawPty(int *master, int *slave) {
  *master = posix_openpt(O_RDWR | O_NOCTTY);
  if (*master < 0 || grantpt(*master) != 0 || unlockpt(*master) != 0) return false;
  const char *name = ptsname(*master);
  if (name == nullptr) return false;
  *slave = open(name, O_RDWR | O_NOCTTY);
  if (*slave < 0) return false;
  termios tio;
  tcgetattr(*slave, &tio);
  cfmakeraw(&tio);
  tcsetattr(*slave, TCSANOW, &tio);
  return true;
}

double now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::vector<uint8_t> bytesOf(const std::vector<int16_t> &samples) {
  std::vector<uint8_t> out(samples.size() * 2);
  memcpy(out.data(), samples.data(), out.size());
  return out;
}

bool isPositionFrame(const uint8_t *b) {
  return b[0] == 0xFF && b[1] == 0x00 && b[3] == 0x02 && b[4] == 0x01 &&
         b[5] == static_cast<uint8_t>(b[2] + 0x03);
}

bool isLevelFrame(const uint8_t *b) {
  uint32_t sum = 0;
  for (size_t i = 1; i < kLevelBytes - 1; ++i) sum += b[i];
  return b[0] == 0xFF && b[kLevelBytes - 1] == static_cast<uint8_t>(sum);
}

}  // namespace

void DeviceFrameParser::feed(const uint8_t *bytes, size_t len, double atSeconds,
                             std::vector<DeviceFrame> *out) {
  pending_.insert(pending_.end(), bytes, bytes + len);
  size_t i = 0;
  while (i < pending_.size()) {
    const uint8_t *b = pending_.data() + i;
    size_t left = pending_.size() - i;
    if (b[0] != 0xFF) {
      ++skipped_;
      ++i;
      continue;
    }
    if (left < kPositionBytes) break;
    if (isPositionFrame(b)) {
      DeviceFrame f;
      f.kind = DeviceFrame::Position;
      f.position = b[2];
      f.atSeconds = atSeconds;
      out->push_back(f);
      i += kPositionBytes;
      continue;
    }
    if (left < kLevelBytes) break;
    if (isLevelFrame(b)) {
      DeviceFrame f;
      f.kind = DeviceFrame::Levels;
      memcpy(f.codes, b + 1, sizeof f.codes);
      f.atSeconds = atSeconds;
      out->push_back(f);
      i += kLevelBytes;
      continue;
    }
    ++skipped_;
    ++i;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(i));
}

BoardAudio talkerAudio(double thetaDeg, double leadSeconds, double talkSeconds) {
  size_t lead = static_cast<size_t>(leadSeconds * kRate);
  std::vector<float> speech = makeVoicedSpeech(talkSeconds, kRate, 7);
  std::vector<float> source(lead + speech.size(), 0.0f);
  for (size_t i = 0; i < speech.size(); ++i) source[lead + i] = speech[i] * (kTalkerPeak / 0.5f);
  size_t n = source.size();
  std::vector<float> planes(n * kMics);
  planeWaveRender(source.data(), n, thetaDeg, planes.data());

  BoardAudio audio;
  audio.mics.resize(n * kMics);
  for (int m = 0; m < kMics; ++m) {
    std::vector<float> noise = makeNoise(NoiseColour::White, n, 100 + m);
    for (size_t i = 0; i < n; ++i)
      audio.mics[i * kMics + m] = floatToS16(planes[m * n + i] + kNoiseFloor * noise[i]);
  }
  audio.lineIn.assign(n * 2, 0);
  return audio;
}

BoardAudio levelAudio(const int16_t (&micAmplitude)[8], int16_t lineAmplitude, double seconds) {
  size_t n = static_cast<size_t>(seconds * kRate);
  BoardAudio audio;
  audio.mics.resize(n * kMics);
  audio.lineIn.resize(n * 2);
  for (size_t i = 0; i < n; ++i) {
    int sign = i % 2 ? -1 : 1;  // a full-rate square wave: its power is amplitude squared
    for (int m = 0; m < kMics; ++m)
      audio.mics[i * kMics + m] = static_cast<int16_t>(sign * micAmplitude[m]);
    audio.lineIn[2 * i] = static_cast<int16_t>(sign * lineAmplitude);
  }
  return audio;
}

SimulatedBoard::SimulatedBoard(const BoardAudio &audio, double speed)
    : alsa_(box_), speed_(speed) {
  // A feeder may still be writing when the daemon is killed at the end.
  signal(SIGPIPE, SIG_IGN);
  // The host's end of the line; the slave stays open here too, so the master
  // never reads a hang-up while the daemon has the line closed.
  if (!openRawPty(&master_, &slave_)) {
    ADD_FAILURE() << "no pseudo-terminal";
    return;
  }
  if (symlink(ptsname(master_), box_.file("dev/ttyS1").c_str()) != 0) ADD_FAILURE() << "no dev/ttyS1";
  fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);

  startFeeder(kDigitMicDevice, bytesOf(audio.mics), kMics, kMicPeriod);
  startFeeder(kLineDevice, bytesOf(audio.lineIn), 2, kLinePeriod);

  startedAt_ = now();
  DaemonOptions options;
  options.workDir = box_.path();
  options.env = {alsa_.environment()};
  daemon_ = std::make_unique<DaemonProcess>(options);
}

void SimulatedBoard::startFeeder(int device, std::vector<uint8_t> bytes, unsigned channels,
                                 unsigned period) {
  std::string fifo = alsa_.makeCaptureFifo(device);
  fifos_.push_back(fifo);
  FeedOptions options;
  options.periodFrames = period;
  options.speed = speed_;
  options.zerosAfter = true;
  feeders_.emplace_back([this, fifo, bytes = std::move(bytes), channels, options] {
    feedFifo(fifo, bytes, channels, options, &stopFeeding_);
  });
}

SimulatedBoard::~SimulatedBoard() {
  stopFeeding_ = true;
  daemon_.reset();  // killed and reaped
  // A feeder still waiting for its reader is released by a reader of our own.
  std::vector<int> releasers;
  for (const std::string &fifo : fifos_) releasers.push_back(open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
  for (std::thread &t : feeders_) t.join();
  for (int fd : releasers)
    if (fd >= 0) close(fd);
  if (slave_ >= 0) close(slave_);
  if (master_ >= 0) close(master_);
}

double SimulatedBoard::elapsed() const { return now() - startedAt_; }

void SimulatedBoard::send(const std::vector<uint8_t> &bytes) {
  ASSERT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

std::vector<DeviceFrame> SimulatedBoard::read(double seconds,
                                              const FrameCondition &until) {
  std::vector<DeviceFrame> got;
  double end = now() + seconds;
  while (now() < end) {
    pollfd p{master_, POLLIN, 0};
    int wait = static_cast<int>(std::ceil((end - now()) * 1000));
    if (poll(&p, 1, wait > 0 ? wait : 0) <= 0) continue;
    uint8_t buf[512];
    ssize_t n = ::read(master_, buf, sizeof buf);
    if (n <= 0) continue;
    size_t before = got.size();
    parser_.feed(buf, static_cast<size_t>(n), elapsed(), &got);
    all_.insert(all_.end(), got.begin() + static_cast<long>(before), got.end());
    if (until && until(got)) break;
  }
  return got;
}

bool SimulatedBoard::waitForLog(const std::string &text, int count, double seconds) {
  return daemon_ && daemon_->waitForOutput(
                        text, DaemonProcess::Timeout(static_cast<long>(seconds * 1000)), count);
}

std::vector<uint8_t> hostCommand(uint8_t group, uint8_t a, uint8_t b) {
  return {0x81, 0x01, group, a, b, 0xFF};
}
