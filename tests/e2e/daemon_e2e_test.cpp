// The real daemon on a simulated board: the microphones and the line-in fed
// through ALSA FIFOs, a pseudo-terminal as dev/ttyS1 whose other end is the
// test, acting as the host.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>

#include "sim/noise.h"
#include "sim/plane_wave.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Recorded seconds per wall-clock second. The estimator keeps well ahead of
// real time, except in sanitizer builds (GCC and Clang both define
// __SANITIZE_ADDRESS__) and under emulation; QV_E2E_SPEED overrides (1 = real time).
#if defined(__SANITIZE_ADDRESS__)
constexpr double kDefaultSpeed = 1.0;
#else
constexpr double kDefaultSpeed = 2.0;
#endif
const double kSpeed = getenv("QV_E2E_SPEED") && atof(getenv("QV_E2E_SPEED")) > 0 ? atof(getenv("QV_E2E_SPEED"))
                                                                                  : kDefaultSpeed;
constexpr int kRate = 48000;
// The daemon's 1 s pause plus process start; longer for the board's build under emulation.
constexpr double kStartupSeconds = QV_E2E_STARTUP_SECONDS;
constexpr double kReportSeconds = 5.0;   // a level report every 250 frames
const char kPosiLine[] = "----------------------------> posi : ";

Bytes command(uint8_t group, uint8_t a, uint8_t b) { return {0x81, 0x01, group, a, b, 0xFF}; }
const Bytes kGetPosition = command(0x0D, 0x00, 0x02), kReboot = command(0x0D, 0x00, 0x01),
            kStopTest = command(0x0E, 0x12, 0x01);

// What the device sent on the line, decoded.
struct Frame {
  bool levels;       // a level report, else a position frame
  uint8_t position;  // 0..180 direction index, 230 none, 231 loudspeaker
  Bytes codes;       // levels: microphones 1..8, line-in
};
using FramePredicate = std::function<bool(const Frame &)>;
const FramePredicate isPosition = [](const Frame &f) { return !f.levels; };
const FramePredicate isLevels = [](const Frame &f) { return f.levels; };
bool any(const std::vector<Frame> &frames, const FramePredicate &p) { return std::any_of(frames.begin(), frames.end(), p); }

struct Audio {
  std::vector<int16_t> mics, line;  // interleaved: 8 channels; 2, the left one the loudspeaker's
};

Bytes bytesOf(const std::vector<int16_t> &samples) {
  Bytes out(samples.size() * 2);
  memcpy(out.data(), samples.data(), out.size());
  return out;
}

// A talker at thetaDeg after leadSeconds of silence, over a faint (-70 dB) independent noise per microphone.
Audio talkerAudio(double thetaDeg, double leadSeconds, double talkSeconds) {
  const std::vector<float> speech = makeVoicedSpeech(talkSeconds, kRate, 7);
  std::vector<float> source(static_cast<size_t>(leadSeconds * kRate), 0.0f);
  source.insert(source.end(), speech.begin(), speech.end());
  const size_t n = source.size();
  std::vector<float> planes(n * 8);
  planeWaveRender(source.data(), n, thetaDeg, planes.data());
  Audio audio{std::vector<int16_t>(n * 8), std::vector<int16_t>(n * 2)};
  for (int m = 0; m < 8; ++m) {
    const std::vector<float> noise = makeNoise(NoiseColour::White, n, 100 + m);
    for (size_t i = 0; i < n; ++i) audio.mics[i * 8 + m] = floatToS16(planes[m * n + i] + 3e-4f * noise[i]);
  }
  return audio;
}

// Full-rate square waves (power = amplitude squared) per microphone and on the line-in's left channel.
Audio levelAudio(const std::vector<int16_t> &micAmplitude, int16_t lineAmplitude, double seconds) {
  const size_t n = static_cast<size_t>(seconds * kRate);
  Audio audio{std::vector<int16_t>(n * 8), std::vector<int16_t>(n * 2)};
  for (size_t i = 0; i < n; ++i) {
    const int sign = i % 2 ? -1 : 1;
    for (int m = 0; m < 8; ++m) audio.mics[i * 8 + m] = static_cast<int16_t>(sign * micAmplitude[m]);
    audio.line[2 * i] = static_cast<int16_t>(sign * lineAmplitude);
  }
  return audio;
}

class Board {
 public:
  explicit Board(const Audio &audio) : alsa_(box_) {
    // The slave end stays open here too, so the host never reads a hang-up
    // while the daemon has the line closed.
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    const char *name = master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0 ? ptsname(master_) : nullptr;
    slave_ = name ? open(name, O_RDWR | O_NOCTTY) : -1;
    termios tio{};
    if (slave_ < 0 || tcgetattr(slave_, &tio) != 0 || symlink(name, box_.file("dev/ttyS1").c_str()) != 0) {
      ADD_FAILURE() << "no pseudo-terminal as dev/ttyS1";
      return;
    }
    cfmakeraw(&tio);
    tcsetattr(slave_, TCSANOW, &tio);
    fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
    FeedOptions feed;
    feed.speed = kSpeed;
    alsa_.feed(3, 8, bytesOf(audio.mics), feed);  // hw:0,3 digital microphones
    feed.periodFrames = 1024;
    alsa_.feed(2, 2, bytesOf(audio.line), feed);  // hw:0,2 line-in
    DaemonOptions options;
    options.workDir = box_.path();
    options.env = {alsa_.environment()};
    daemon_ = std::make_unique<DaemonProcess>(options);
  }
  ~Board() {
    daemon_.reset();
    if (slave_ >= 0) close(slave_);
    if (master_ >= 0) close(master_);
  }

  void send(const Bytes &bytes) { ASSERT_EQ(write(master_, bytes.data(), bytes.size()), ssize_t(bytes.size())); }

  // The frames on the line for up to `seconds`, returning early once one satisfies `until`.
  std::vector<Frame> read(double seconds, const FramePredicate &until) {
    std::vector<Frame> got;
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (auto now = std::chrono::steady_clock::now(); now < end && !any(got, until); now = std::chrono::steady_clock::now()) {
      pollfd p{master_, POLLIN, 0};
      uint8_t buf[512];
      if (poll(&p, 1, static_cast<int>(std::chrono::duration<double, std::milli>(end - now).count()) + 1) <= 0) continue;
      const ssize_t n = ::read(master_, buf, sizeof buf);
      if (n > 0) parse(buf, static_cast<size_t>(n), &got);
    }
    return got;
  }

  size_t skippedBytes() const { return skipped_; }
  bool daemonAlive() { return daemon_ && daemon_->running(); }
  std::string log() const { return daemon_ ? daemon_->out() : std::string(); }
  bool waitForLog(const std::string &text, int count, double seconds) {
    return daemon_ && daemon_->waitForOutput(text, DaemonProcess::Timeout(long(seconds * 1000)), count);
  }
  std::string file(const std::string &relative) const { return box_.read(relative); }

 private:
  // Position frames FF 00 p 02 01 p+3 and level reports FF c1..c9 sum; bytes that fit neither are skipped.
  void parse(const uint8_t *bytes, size_t len, std::vector<Frame> *out) {
    pending_.insert(pending_.end(), bytes, bytes + len);
    size_t i = 0;
    for (; i < pending_.size(); ++i) {
      const uint8_t *b = pending_.data() + i;
      const size_t left = pending_.size() - i;
      if (b[0] == 0xFF && left < 6) break;
      if (b[0] == 0xFF && b[1] == 0x00 && b[3] == 0x02 && b[4] == 0x01 && b[5] == uint8_t(b[2] + 3)) {
        out->push_back({false, b[2], {}});
        i += 5;
        continue;
      }
      if (b[0] == 0xFF && left < 11) break;
      if (b[0] == 0xFF && b[10] == uint8_t(std::accumulate(b + 1, b + 10, 0))) {
        out->push_back({true, 0, Bytes(b + 1, b + 10)});
        i += 10;
        continue;
      }
      ++skipped_;
    }
    pending_.erase(pending_.begin(), pending_.begin() + long(i));
  }

  Sandbox box_;
  AlsaSandbox alsa_;
  int master_ = -1, slave_ = -1;
  std::unique_ptr<DaemonProcess> daemon_;
  Bytes pending_;
  size_t skipped_ = 0;
};

TEST(SimulatedBoard, HostReceivesTheTalkersDirection) {
  constexpr int kTalkerDeg = 30;
  Board board(talkerAudio(kTalkerDeg, 1.0, 8.0));
  const auto direction = [](const Frame &f) { return !f.levels && f.position <= 180; };
  const auto nearTalker = [&](const Frame &f) { return direction(f) && std::abs(f.position - 90 - kTalkerDeg) <= 2; };
  // The estimator publishes after about 1.1 s of speech.
  const std::vector<Frame> got = board.read(kStartupSeconds + 5.0 / kSpeed, nearTalker);
  ASSERT_TRUE(any(got, nearTalker)) << board.log().substr(0, 3000);
  for (const Frame &f : got) EXPECT_TRUE(!direction(f) || nearTalker(f)) << "another direction: " << int(f.position);
  EXPECT_TRUE(board.daemonAlive());
}

TEST(SimulatedBoard, TestModeReportsLevelsInsteadOfPositionsUntilStopped) {
  // Microphones 1-3 loud (106 dB), 4-6 quiet (66 dB), 7-8 silent; line-in loud.
  Board board(levelAudio({1000, 1000, 1000, 10, 10, 10, 0, 0}, 1000, 40.0));
  ASSERT_TRUE(any(board.read(kStartupSeconds + 2.0, isPosition), isPosition))
      << "the first-minute re-send shows the line is up\n" << board.log();

  board.send(command(0x0E, 90, 50));  // start test mode: loud above 90 dB, quiet below 50 dB
  ASSERT_TRUE(any(board.read(2 * kReportSeconds / kSpeed + 2.0, isLevels), isLevels)) << board.log().substr(0, 4000);
  const std::vector<Frame> got = board.read(kReportSeconds / kSpeed + 2.0, isLevels);
  ASSERT_TRUE(any(got, isLevels));
  EXPECT_FALSE(any(got, isPosition)) << "test mode";
  EXPECT_EQ(got.back().codes, (Bytes{0x01, 0x01, 0x01, 0x20, 0x20, 0x20, 0x10, 0x10, 0x01}));

  board.send(kStopTest);
  EXPECT_TRUE(any(board.read(3.0, isPosition), isPosition)) << "positions resume after stop test";
  EXPECT_TRUE(board.waitForLog("stop test mode..", 1, 1.0));
}

TEST(SimulatedBoard, CommandsAreAnsweredAndGarbageIsSkipped) {
  Board board(levelAudio(std::vector<int16_t>(8, 0), 0, 1.0));
  ASSERT_TRUE(any(board.read(kStartupSeconds + 2.0, isPosition), isPosition)) << board.log();
  // Silence: the position stays "no direction", so it is printed only on request.
  EXPECT_EQ(countOccurrences(board.log(), kPosiLine), 0);
  board.send(kGetPosition);
  ASSERT_TRUE(board.waitForLog(std::string(kPosiLine) + "230", 1, 2.0)) << board.log();
  const std::vector<Frame> answer = board.read(0.5, isPosition);
  ASSERT_TRUE(any(answer, isPosition));
  EXPECT_EQ(answer.front().position, 230);

  // Noise, then frames that look almost right: none of them may act.
  board.send({0x00, 0xFF, 0x13, 0x7E, 0xFE, 0x80, 0x82, 0x01, 0x0D, 0x00, 0x01, 0xFF});
  board.send({0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFE});  // update with a bad end byte
  board.send({0x81, 0x02, 0x0D, 0x00, 0x01, 0xFF});  // reboot with a bad second byte
  board.send({0x81, 0x01, 0x0F, 0x00, 0x02, 0xFF});  // unknown group
  board.send({0x81, 0x01, 0x0D, 0x00, 0x03, 0xFF});  // unknown system command
  board.send({0x81, 0x01, 0x0D});  // cut off: swallows the start of the next frame, which is lost too
  board.send(kGetPosition);
  usleep(500000);
  EXPECT_EQ(countOccurrences(board.log(), kPosiLine), 1) << "nothing answered the broken frames";
  board.send(kGetPosition);
  EXPECT_TRUE(board.waitForLog(kPosiLine, 2, 2.0)) << "back in step after the damage";
  EXPECT_EQ(board.file("commands.log"), "");
  EXPECT_EQ(countOccurrences(board.log(), "start test mode") + countOccurrences(board.log(), "recv update cmd"), 0);

  board.send(kReboot);
  for (int i = 0; i < 60 && countOccurrences(board.file("commands.log"), "reboot") == 0; ++i) usleep(50000);
  EXPECT_EQ(board.file("commands.log"), "sync\nreboot\n");
  EXPECT_TRUE(board.waitForLog("recv reboot cmd and reboot..", 1, 1.0));
  board.send(kGetPosition);  // the sandbox's reboot returns, and the daemon carries on
  EXPECT_TRUE(board.waitForLog(kPosiLine, 3, 3.0));
  EXPECT_TRUE(board.daemonAlive());
  EXPECT_EQ(board.skippedBytes(), 0u) << "the device itself only sends whole frames";
}

}  // namespace
