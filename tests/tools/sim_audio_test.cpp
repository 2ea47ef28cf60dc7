// The simulator's audio plumbing: WAV files (including the daemon's own
// recordings), resampling, noise levels and direction schedules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "audio/wav_header.h"
#include "sim/direction_schedule.h"
#include "sim/noise.h"
#include "sim/resample.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/sandbox.h"

namespace {
std::string s16(std::initializer_list<int> values) {
  std::string bytes;
  for (int v : values) bytes += {static_cast<char>(v & 0xFF), static_cast<char>((v >> 8) & 0xFF)};
  return bytes;
}

std::vector<float> tone(double hz, int rate, size_t n) {
  std::vector<float> y(n);
  for (size_t i = 0; i < n; ++i) y[i] = static_cast<float>(0.5 * std::sin(2 * M_PI * hz * i / rate));
  return y;
}
}  // namespace

TEST(SimWav, RoundTripAndTheDaemonsRecordingWithPlaceholderSizes) {
  Sandbox box;
  WavData wav{16000, 3, {}}, back;
  for (int i = 0; i < 3 * 1001; ++i) wav.samples.push_back(static_cast<int16_t>(i * 37 - 32768));
  ASSERT_EQ("", wavWrite(box.file("t.wav"), wav));
  ASSERT_EQ("", wavRead(box.file("t.wav"), &back));
  EXPECT_EQ(16000, back.sampleRate);
  EXPECT_EQ(3, back.channels);
  EXPECT_EQ(wav.samples, back.samples);
  EXPECT_TRUE(wavFileHasHeader(box.file("t.wav")));

  // The daemon's constant header, then data to the end of the file, cut off mid-frame.
  uint8_t header[WAV_HEADER_BYTES];
  wavHeaderFill(header, 8);
  std::string rec(reinterpret_cast<char *>(header), WAV_HEADER_BYTES);
  for (int i = 0; i < 8 * 100; ++i) rec += s16({i - 400});
  box.write("rec.wav", rec + s16({7}));
  ASSERT_EQ("", wavRead(box.file("rec.wav"), &back));
  EXPECT_EQ(48000, back.sampleRate);  // the rate field, not the template's byte rate
  EXPECT_EQ(8, back.channels);
  ASSERT_EQ(100u, back.frames());
  EXPECT_EQ(-400, back.samples.front());
  EXPECT_EQ(399, back.samples.back());
}

TEST(SimWav, ExtraChunksAndHeaderlessStereoAreRead) {
  Sandbox box;
  const std::string riff("RIFF\0\0\0\0WAVE", 12);
  box.write("x.wav", riff + std::string("LIST\3\0\0\0abc\0", 12) +  // odd chunk, padded
                         std::string("fmt \x10\0\0\0\1\0\1\0\x44\xAC\0\0\x88\x58\1\0\2\0\x10\0data\4\0\0\0", 32) +
                         s16({1234, -1234}));
  WavData wav;
  ASSERT_EQ("", wavRead(box.file("x.wav"), &wav));
  EXPECT_EQ(44100, wav.sampleRate);
  EXPECT_EQ((std::vector<int16_t>{1234, -1234}), wav.samples);

  box.write("line.raw", s16({1, 2, 3, 4}) + "\5");
  EXPECT_FALSE(wavFileHasHeader(box.file("line.raw")));
  ASSERT_EQ("", rawS16Read(box.file("line.raw"), 2, 48000, &wav));
  EXPECT_EQ((std::vector<int16_t>{1, 2, 3, 4}), wav.samples);
}

TEST(SimWav, MalformedFilesAreRefusedWithAReason) {
  Sandbox box;
  WavData wav;
  EXPECT_NE("", wavRead(box.file("missing.wav"), &wav));
  box.write("short.wav", "RIFF");
  EXPECT_NE("", wavRead(box.file("short.wav"), &wav));
  std::string fmt("RIFF\0\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1F\0\0\x40\x1F\0\0\1\0\x8\0", 36);
  box.write("u8.wav", fmt);
  EXPECT_NE(std::string::npos, wavRead(box.file("u8.wav"), &wav).find("16-bit"));
  fmt[34] = 16;  // now 16-bit, but there is no data chunk
  box.write("nodata.wav", fmt);
  EXPECT_NE(std::string::npos, wavRead(box.file("nodata.wav"), &wav).find("no data"));
}

TEST(SimResample, ToneKeepsItsShapeAndDownsamplingDropsWhatTheRateCannotHold) {
  for (int rate : {8000, 16000, 22050, 44100, 96000}) {
    const std::vector<float> y = resample(tone(1000.0, rate, rate / 2), rate, 48000);
    ASSERT_NEAR(24000.0, static_cast<double>(y.size()), 1.0) << rate;
    const std::vector<float> want = tone(1000.0, 48000, y.size());
    double worst = 0.0;  // away from the ends, within -80 dB of the tone's amplitude
    for (size_t i = 2400; i < y.size() - 2400; ++i) worst = std::max(worst, std::fabs(double(y[i]) - want[i]));
    EXPECT_LT(worst, 0.5e-4) << rate;
  }
  const std::vector<float> y = resample(tone(10000.0, 48000, 48000), 48000, 16000);  // above the new Nyquist
  double peak = 0.0;
  for (size_t i = 800; i + 800 < y.size(); ++i) peak = std::max(peak, std::fabs(double(y[i])));
  EXPECT_LT(peak, 0.5e-3);
}

TEST(SimNoise, ActivePowerIgnoresPausesNoiseHasUnitPowerAndPinkFallsThreeDbPerOctave) {
  std::vector<float> speech = makeVoicedSpeech(4.0, 48000, 3);
  const double active = activePower(speech, 48000);
  speech.resize(speech.size() * 2, 0.0f);  // as much silence again
  EXPECT_NEAR(active, activePower(speech, 48000), 1e-9);
  for (NoiseColour c : {NoiseColour::White, NoiseColour::Pink}) EXPECT_NEAR(1.0, meanPower(makeNoise(c, 96000, 5)), 0.05);
  const std::vector<float> pink = makeNoise(NoiseColour::Pink, 48000, 9);
  auto density = [&](double f0) {  // periodogram summed over 20 frequencies from f0 up
    double sum = 0.0;
    for (double f = f0; f < f0 + 60.0; f += 3.0) {
      std::complex<double> z;
      for (size_t i = 0; i < pink.size(); ++i) z += double(pink[i]) * std::polar(1.0, 2 * M_PI * f * i / 48000);
      sum += std::norm(z);
    }
    return sum;
  };
  EXPECT_NEAR(9.0, 10 * std::log10(density(300) / density(2400)), 2.0);  // three octaves apart
}

TEST(SimSchedule, FixedDirectionsAndSchedulesParseAndBadOnesAreRefused) {
  std::vector<PlaneWaveSegment> s;
  ASSERT_EQ("", parseDirectionSchedule("-35.5", &s));
  ASSERT_EQ(1u, s.size());
  EXPECT_EQ(0u, s[0].startSample);
  EXPECT_EQ(-35.5, s[0].thetaDeg);
  ASSERT_EQ("", parseDirectionSchedule("0:30,5:-40,7.5:90", &s));
  ASSERT_EQ(3u, s.size());
  EXPECT_EQ(240000u, s[1].startSample);
  EXPECT_EQ(-40.0, s[1].thetaDeg);
  EXPECT_EQ(360000u, s[2].startSample);
  for (const char *bad : {"", "abc", "91", "-90.5", "0:30,0:40", "5:10,2:20", "0:30,", "0:30;5:20", "1:x", "-1:20"})
    EXPECT_NE("", parseDirectionSchedule(bad, &s)) << bad;
}
