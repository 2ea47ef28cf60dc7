// The real daemon on a simulated board: the microphones and the line-in fed
// through ALSA FIFOs, a pseudo-terminal as dev/ttyS1 whose other end is the
// test, acting as the host.
#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <thread>

#include "sim/noise.h"
#include "sim/plane_wave.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/eventually.h"
#include "support/pty_line.h"

namespace {

using namespace std::chrono_literals;

// Recorded seconds per wall-clock second (1 = real time): the build's default
// (the estimator keeps well ahead of real time, except in sanitizer builds),
// or QV_E2E_SPEED, as under emulation.
const double kSpeed = getenv("QV_E2E_SPEED") ? atof(getenv("QV_E2E_SPEED")) : QV_E2E_DEFAULT_SPEED;
constexpr int kRate = 48000;
// The daemon's 1 s pause plus process start; longer for the board's build under emulation.
constexpr double kStartupSeconds = QV_E2E_STARTUP_SECONDS;
constexpr double kReportSeconds = 5.0;  // a level report every 250 frames
const char kPosiLine[] = "----------------------------> posi : ";

Bytes command(uint8_t group, uint8_t a, uint8_t b) { return {0x81, 0x01, group, a, b, 0xFF}; }
const Bytes kGetPosition = command(0x0D, 0x00, 0x02);

// A whole frame the device sent: a position FF 00 p 02 01 p+3 (p: 0..180 a
// direction index, 230 none, 231 the loudspeaker) or a level report FF c1..c9
// sum (microphones 1..8, line-in).
using Frame = Bytes;
using FramePredicate = std::function<bool(const Frame &)>;
const FramePredicate isPosition = [](const Frame &f) { return f.size() == 6; };
const FramePredicate isLevels = [](const Frame &f) { return f.size() == 11; };
bool any(const std::vector<Frame> &frames, const FramePredicate &p) {
  return std::any_of(frames.begin(), frames.end(), p);
}

struct Audio {
  std::vector<int16_t> mics, line;  // interleaved: 8 channels; 2, the left one the loudspeaker's
};
Bytes bytesOf(const std::vector<int16_t> &s) {
  const auto *b = reinterpret_cast<const uint8_t *>(s.data());
  return Bytes(b, b + 2 * s.size());
}

// A talker at thetaDeg after leadSeconds of silence, over a faint (-70 dB) independent noise per
// microphone.
Audio talkerAudio(double thetaDeg, double leadSeconds, double talkSeconds) {
  const std::vector<float> speech = makeVoicedSpeech(talkSeconds, kRate, 7);
  std::vector<float> source(static_cast<size_t>(leadSeconds * kRate), 0.0f);
  source.insert(source.end(), speech.begin(), speech.end());
  const size_t n = source.size();
  std::vector<float> planes(n * 8);
  planeWaveRender(source.data(), n, thetaDeg, planes.data());
  Audio audio{std::vector<int16_t>(n * 8), std::vector<int16_t>(n * 2)};
  const std::vector<float> noise = makeNoise(NoiseColour::White, n * 8, 100);
  for (size_t k = 0; k < n * 8; ++k)
    audio.mics[k % n * 8 + k / n] = floatToS16(planes[k] + 3e-4f * noise[k]);
  return audio;
}

// Full-rate square waves (power = amplitude squared) per microphone and on the line-in's left
// channel.
Audio levelAudio(const std::vector<int16_t> &micAmplitude, int16_t lineAmplitude, double seconds) {
  const size_t n = static_cast<size_t>(seconds * kRate);
  Audio audio{std::vector<int16_t>(n * 8), std::vector<int16_t>(n * 2)};
  for (size_t i = 0; i < n; ++i) {
    const int sign = i % 2 ? -1 : 1;
    for (int m = 0; m < 8; ++m)
      audio.mics[i * 8 + m] = static_cast<int16_t>(sign * micAmplitude[m]);
    audio.line[2 * i] = static_cast<int16_t>(sign * lineAmplitude);
  }
  return audio;
}

// Voluntary context switches so far of the daemon's thread named `name`, or -1.
long voluntarySwitches(pid_t pid, const std::string &name) {
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task/";
  DIR *dir = opendir(tasks.c_str());
  long switches = -1;
  while (dirent *e = dir ? readdir(dir) : nullptr) {
    std::string comm;
    std::ifstream(tasks + e->d_name + "/comm") >> comm;
    if (comm != name) continue;
    std::ifstream status(tasks + e->d_name + "/status");
    for (std::string key; status >> key;)
      if (key == "voluntary_ctxt_switches:") status >> switches;
  }
  if (dir) closedir(dir);
  return switches;
}

// Members in start order, so the daemon ends before the line and the audio it uses go.
struct Board {
  explicit Board(const Audio &audio) {
    // hw:0,3 the digital microphones, hw:0,2 the line-in
    alsa.feed(3, 8, bytesOf(audio.mics), {0, FEED_PERIOD_FRAMES, kSpeed});
    alsa.feed(2, 2, bytesOf(audio.line), {0, 1024, kSpeed});
    daemon = std::make_unique<DaemonProcess>(DaemonOptions{box.path(), {alsa.environment()}, {}});
  }

  // The frames on the line for up to `seconds`, returning early once one satisfies `until`.
  std::vector<Frame> read(double seconds, const FramePredicate &until) {
    std::vector<Frame> got;
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!any(got, until) && std::chrono::steady_clock::now() < end)
      parse(line.receiveAll(10), &got);
    return got;
  }

  Sandbox box;
  AlsaSandbox alsa{box};
  PtyLine line;  // dev/ttyS1
  std::unique_ptr<DaemonProcess> daemon;
  size_t skipped = 0;  // bytes that fit no frame
  Bytes pending;

  // Bytes that fit no frame are skipped.
  void parse(const Bytes &bytes, std::vector<Frame> *out) {
    pending.insert(pending.end(), bytes.begin(), bytes.end());
    size_t i = 0;
    while (i < pending.size()) {
      const uint8_t *b = pending.data() + i;
      const size_t left = pending.size() - i;
      const bool position = left >= 6 && b[0] == 0xFF && b[1] == 0 && b[3] == 2 && b[4] == 1 &&
                            b[5] == uint8_t(b[2] + 3);
      const bool levels = !position && left >= 11 && b[0] == 0xFF &&
                          b[10] == uint8_t(std::accumulate(b + 1, b + 10, 0));
      if (b[0] == 0xFF && !position && !levels && left < 11) break;  // perhaps a frame's start
      const size_t len = position ? 6 : levels ? 11 : 0;
      if (len) out->push_back(Bytes(b, b + len));
      skipped += !len;
      i += len ? len : 1;
    }
    pending.erase(pending.begin(), pending.begin() + long(i));
  }
};

TEST(SimulatedBoard, HostReceivesTheTalkersDirection) {
  constexpr int kTalkerDeg = 30;
  Board board(talkerAudio(kTalkerDeg, 1.0, 8.0));
  const auto direction = [](const Frame &f) { return isPosition(f) && f[2] <= 180; };
  const auto nearTalker = [&](const Frame &f) {
    return direction(f) && std::abs(f[2] - 90 - kTalkerDeg) <= 2;
  };
  // The estimator publishes after about 1.1 s of speech.
  const std::vector<Frame> got = board.read(kStartupSeconds + 5.0 / kSpeed, nearTalker);
  ASSERT_TRUE(any(got, nearTalker)) << board.daemon->out().substr(0, 3000);
  for (const Frame &f : got)
    EXPECT_TRUE(!direction(f) || nearTalker(f)) << "another direction: " << int(f[2]);
  EXPECT_TRUE(board.daemon->running());
}

TEST(SimulatedBoard, TestModeReportsLevelsInsteadOfPositionsUntilStopped) {
  // Microphones 1-3 loud (106 dB), 4-6 quiet (66 dB), 7-8 silent; line-in loud.
  Board board(levelAudio({1000, 1000, 1000, 10, 10, 10, 0, 0}, 1000, 40.0));
  // The first minute's re-sends show the line is up.
  ASSERT_TRUE(any(board.read(kStartupSeconds + 2.0, isPosition), isPosition))
      << board.daemon->out();

  board.line.send(command(0x0E, 90, 50));  // start test mode: loud above 90 dB, quiet below 50 dB
  ASSERT_TRUE(any(board.read(2 * kReportSeconds / kSpeed + 2.0, isLevels), isLevels))
      << board.daemon->out().substr(0, 4000);
  const std::vector<Frame> got = board.read(kReportSeconds / kSpeed + 2.0, isLevels);
  ASSERT_TRUE(any(got, isLevels));
  EXPECT_FALSE(any(got, isPosition)) << "test mode";
  EXPECT_EQ(got.back(), (Bytes{0xFF, 0x01, 0x01, 0x01, 0x20, 0x20, 0x20, 0x10, 0x10, 0x01, 0x84}));

  board.line.send(command(0x0E, 0x12, 0x01));  // stop test mode
  EXPECT_TRUE(any(board.read(3.0, isPosition), isPosition)) << "positions resume after stop test";
}

TEST(SimulatedBoard, CommandsAreAnsweredAndGarbageIsSkipped) {
  Board board(levelAudio(std::vector<int16_t>(8, 0), 0, 1.0));
  ASSERT_TRUE(any(board.read(kStartupSeconds + 2.0, isPosition), isPosition))
      << board.daemon->out();
  // Silence: the position stays "no direction", so it is printed only on request.
  EXPECT_EQ(countOccurrences(board.daemon->out(), kPosiLine), 0);
  // A silent host line: the command thread sleeps (a 20 ms wait makes 50 wake-ups a second).
  const long before = voluntarySwitches(board.daemon->pid(), "qv-host");
  std::this_thread::sleep_for(1s);
  const long after = voluntarySwitches(board.daemon->pid(), "qv-host");
  ASSERT_GE(before, 0) << "no thread qv-host";
  EXPECT_LT(after - before, 100);
  // Noise and a reboot with a bad start byte (the parser's own tests have the
  // whole list of near misses) come before the request: none of it may act.
  board.line.send({0x00, 0xFF, 0x13, 0x7E, 0xFE, 0x80, 0x82, 0x01, 0x0D, 0x00, 0x01, 0xFF});
  board.line.send(kGetPosition);
  ASSERT_TRUE(board.daemon->waitForOutput(std::string(kPosiLine) + "230", 2s))
      << board.daemon->out();
  EXPECT_EQ(board.read(0.5, isPosition).at(0),
            (Frame{0xFF, 0x00, 230, 0x02, 0x01, 233}));  // no direction
  EXPECT_EQ(board.box.read("commands.log"), "");

  board.line.send(command(0x0D, 0x00, 0x01));  // reboot
  EXPECT_TRUE(eventually([&] { return board.box.read("commands.log") == "sync\nreboot\n"; }, 3000));
  EXPECT_EQ(board.skipped, 0u) << "the device itself only sends whole frames";
}

}  // namespace
