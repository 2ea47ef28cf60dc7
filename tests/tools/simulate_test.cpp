// quenvarile-simulate: which microphone hears a talker first, what reaches the
// line-in, levels, and how bad command lines are refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "sim/noise.h"
#include "sim/wav_file.h"
#include "support/sandbox.h"
#include "tool_run.h"

namespace {
const std::string kSimulate = QV_SIMULATE_PATH;

// Lag (in samples) by which channel b trails channel a, by cross-correlation.
int lagOf(const WavData &wav, int a, int b, int maxLag) {
  const std::vector<float> x = wavChannel(wav, a), y = wavChannel(wav, b);
  int best = 0;
  double bestValue = -1e300;
  for (int lag = -maxLag; lag <= maxLag; ++lag) {
    double sum = 0.0;
    for (size_t i = maxLag; i + maxLag < x.size(); ++i) sum += static_cast<double>(x[i]) * y[i + lag];
    if (sum > bestValue) bestValue = sum, best = lag;
  }
  return best;
}

WavData load(const Sandbox &box, const std::string &name) {
  WavData wav;
  EXPECT_EQ("", wavRead(box.file(name), &wav));
  return wav;
}
}  // namespace

TEST(Simulate, PositiveAnglesReachMicrophoneZeroFirst) {
  Sandbox box;
  for (int theta : {40, -40, 0}) {
    ASSERT_EQ(0, runTool(kSimulate + " synthetic:1 " + std::to_string(theta) + " a.wav l.wav").status) << theta;
    const WavData wav = load(box, "a.wav");
    ASSERT_EQ(8, wav.channels);
    ASSERT_EQ(48000, wav.sampleRate);
    ASSERT_EQ(48000u, wav.frames());
    // Microphone 7 trails microphone 0 by 7 spacings of 3 cm: 7 * 0.03 * sin(theta) / 346 s.
    const double expected = 7 * 0.03 * std::sin(theta * M_PI / 180.0) / 346.0 * 48000.0;
    EXPECT_NEAR(expected, lagOf(wav, 0, 7, 30), 1.0) << theta;
    EXPECT_NEAR(expected / 7.0, lagOf(wav, 3, 4, 10), 1.0) << theta;
  }
}

TEST(Simulate, TalkerLevelNoiseAndSilentLineIn) {
  Sandbox box;
  ASSERT_EQ(0, runTool(kSimulate + " --level -26 --snr 10 --noise white synthetic:2 10 a.wav l.wav").status);
  const WavData wav = load(box, "a.wav"), line = load(box, "l.wav");
  ASSERT_EQ(2, line.channels);
  EXPECT_EQ(wav.frames(), line.frames());
  EXPECT_TRUE(std::all_of(line.samples.begin(), line.samples.end(), [](int16_t s) { return s == 0; }));
  const std::vector<float> mic = wavChannel(wav, 5);
  EXPECT_NEAR(-26.0, 10 * std::log10(activePower(mic, 48000)), 1.0);
  // Noise alone shows in the pauses: the quietest 20 ms blocks are 10 dB below the speech.
  std::vector<double> blocks;
  for (size_t s = 0; s + 960 <= mic.size(); s += 960)
    blocks.push_back(meanPower(std::vector<float>(mic.begin() + s, mic.begin() + s + 960)));
  std::sort(blocks.begin(), blocks.end());
  EXPECT_NEAR(-36.0, 10 * std::log10(blocks[blocks.size() / 10]), 1.5);
}

TEST(Simulate, LoudspeakerReachesTheMicrophonesAndTheLeftLineInChannel) {
  Sandbox box;
  ASSERT_EQ(0, runTool(kSimulate + " synthetic:1 0 speech.wav unused.wav").status);  // the programme
  ASSERT_EQ(0, runTool(kSimulate + " --speaker speech.wav --speaker-start 0.5 --speaker-direction -70 none 0 a.wav l.wav").status);
  const WavData wav = load(box, "a.wav"), line = load(box, "l.wav");
  ASSERT_EQ(wav.frames(), line.frames());
  ASSERT_EQ(72000u, line.frames());  // 0.5 s lead + 1 s of programme
  const std::vector<float> left = wavChannel(line, 0), right = wavChannel(line, 1);
  auto silent = [](auto from, auto to) { return std::all_of(from, to, [](float v) { return v == 0.0f; }); };
  EXPECT_TRUE(silent(right.begin(), right.end()));
  EXPECT_TRUE(silent(left.begin(), left.begin() + 24000));
  EXPECT_FALSE(silent(left.begin() + 24000, left.end()));
  EXPECT_NEAR(-20.0, 10 * std::log10(activePower(wavChannel(wav, 0), 48000)), 1.0);
  EXPECT_LT(lagOf(wav, 0, 7, 30), -15);  // heard from -70 degrees: microphone 7 first
}

TEST(Simulate, BadCommandLinesAreRefusedWithUsage) {
  Sandbox box;
  EXPECT_EQ(0, runTool(kSimulate + " --help").status);
  for (const char *args : {"", "synthetic:1 95 a.wav l.wav", "synthetic:1 0:10,0:20 a.wav l.wav", "synthetic:1 0 a.wav",
                           "--snr ten synthetic:1 0 a.wav l.wav", "--snr 10 --noise-level -50 synthetic:1 0 a.wav l.wav",
                           "--noise brown synthetic:1 0 a.wav l.wav", "--frobnicate synthetic:1 0 a.wav l.wav",
                           "--snr 10 none 0 a.wav l.wav"})  // the last: an SNR without a talker
    EXPECT_EQ(2, runTool(kSimulate + " " + args + " 2>/dev/null").status) << args;
  EXPECT_EQ(1, runTool(kSimulate + " missing.wav 0 a.wav l.wav 2>/dev/null").status);
}
