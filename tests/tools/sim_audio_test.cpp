// The simulator's audio plumbing: WAV files (including the daemon's own
// recordings with placeholder sizes), resampling accuracy, noise levels and
// direction schedules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "audio/wav_header.h"
#include "sim/direction_schedule.h"
#include "sim/noise.h"
#include "sim/resample.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/sandbox.h"

namespace {
void writeBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
  FILE *f = fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  fwrite(bytes.data(), 1, bytes.size(), f);
  fclose(f);
}

void appendS16(std::vector<uint8_t> *bytes, int16_t v) {
  bytes->push_back(static_cast<uint8_t>(v & 0xFF));
  bytes->push_back(static_cast<uint8_t>((static_cast<uint16_t>(v) >> 8) & 0xFF));
}

// Worst deviation of `y` from a sine of `hz` at `rate`, over samples [from, to).
double worstSineError(const std::vector<float> &y, double hz, int rate, size_t from, size_t to) {
  double worst = 0.0;
  for (size_t i = from; i < to; ++i)
    worst = std::max(worst, std::fabs(y[i] - 0.5 * std::sin(2 * M_PI * hz * i / rate)));
  return worst;
}
}  // namespace

TEST(SimWav, RoundTripKeepsRateChannelsAndEverySample) {
  Sandbox box;
  WavData wav{16000, 3, {}};
  for (int i = 0; i < 3 * 1001; ++i) wav.samples.push_back(static_cast<int16_t>(i * 37 - 32768));
  ASSERT_EQ("", wavWrite(box.file("t.wav"), wav));
  WavData back;
  ASSERT_EQ("", wavRead(box.file("t.wav"), &back));
  EXPECT_EQ(16000, back.sampleRate);
  EXPECT_EQ(3, back.channels);
  EXPECT_EQ(wav.samples, back.samples);
  EXPECT_TRUE(wavFileHasHeader(box.file("t.wav")));
}

TEST(SimWav, DaemonRecordingWithPlaceholderSizesIsReadToEndOfFile) {
  Sandbox box;
  uint8_t header[WAV_HEADER_BYTES];
  wavHeaderFill(header, 8);
  std::vector<uint8_t> bytes(header, header + WAV_HEADER_BYTES);
  for (int i = 0; i < 8 * 100; ++i) appendS16(&bytes, static_cast<int16_t>(i - 400));
  appendS16(&bytes, 7);  // a recording cut off mid-frame
  writeBytes(box.file("rec.wav"), bytes);
  WavData wav;
  ASSERT_EQ("", wavRead(box.file("rec.wav"), &wav));
  EXPECT_EQ(48000, wav.sampleRate);  // the rate field, not the template's byte rate
  EXPECT_EQ(8, wav.channels);
  ASSERT_EQ(100u, wav.frames());
  EXPECT_EQ(-400, wav.samples.front());
  EXPECT_EQ(399, wav.samples.back());
}

TEST(SimWav, ExtraChunksAndHeaderlessStereoAreRead) {
  Sandbox box;
  std::vector<uint8_t> bytes = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E',
                                'L', 'I', 'S', 'T', 3, 0, 0, 0, 'a', 'b', 'c', 0,  // odd chunk, padded
                                'f', 'm', 't', ' ', 16, 0, 0, 0, 1, 0, 1, 0, 0x44, 0xAC, 0, 0,
                                0x88, 0x58, 1, 0, 2, 0, 16, 0, 'd', 'a', 't', 'a', 4, 0, 0, 0};
  appendS16(&bytes, 1234);
  appendS16(&bytes, -1234);
  writeBytes(box.file("x.wav"), bytes);
  WavData wav;
  ASSERT_EQ("", wavRead(box.file("x.wav"), &wav));
  EXPECT_EQ(44100, wav.sampleRate);
  EXPECT_EQ((std::vector<int16_t>{1234, -1234}), wav.samples);

  writeBytes(box.file("line.raw"), {1, 0, 2, 0, 3, 0, 4, 0, 5});
  EXPECT_FALSE(wavFileHasHeader(box.file("line.raw")));
  ASSERT_EQ("", rawS16Read(box.file("line.raw"), 2, 48000, &wav));
  EXPECT_EQ((std::vector<int16_t>{1, 2, 3, 4}), wav.samples);
}

TEST(SimWav, MalformedFilesAreRefusedWithAReason) {
  Sandbox box;
  WavData wav;
  EXPECT_NE("", wavRead(box.file("missing.wav"), &wav));
  writeBytes(box.file("short.wav"), {'R', 'I', 'F', 'F'});
  EXPECT_NE("", wavRead(box.file("short.wav"), &wav));
  std::vector<uint8_t> eightBit = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16, 0, 0, 0,
                                   1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 1, 0, 8, 0};
  writeBytes(box.file("u8.wav"), eightBit);
  EXPECT_NE(std::string::npos, wavRead(box.file("u8.wav"), &wav).find("16-bit"));
  eightBit[34] = 16;  // now 16-bit, but there is no data chunk
  writeBytes(box.file("nodata.wav"), eightBit);
  EXPECT_NE(std::string::npos, wavRead(box.file("nodata.wav"), &wav).find("no data"));
}

TEST(SimResample, ToneKeepsItsShapeFromCommonRatesTo48k) {
  for (int rate : {8000, 16000, 22050, 44100, 96000}) {
    const double hz = 1000.0;
    std::vector<float> tone(rate / 2);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = static_cast<float>(0.5 * std::sin(2 * M_PI * hz * i / rate));
    const std::vector<float> y = resample(tone, rate, 48000);
    ASSERT_NEAR(24000.0, static_cast<double>(y.size()), 1.0) << rate;
    // Away from the ends, within -80 dB of the tone's amplitude.
    EXPECT_LT(worstSineError(y, hz, 48000, 2400, y.size() - 2400), 0.5e-4) << rate;
  }
}

TEST(SimResample, DownsamplingRemovesWhatTheNewRateCannotHold) {
  std::vector<float> high(48000);
  for (size_t i = 0; i < high.size(); ++i) high[i] = static_cast<float>(0.5 * std::sin(2 * M_PI * 10000.0 * i / 48000));
  const std::vector<float> y = resample(high, 48000, 16000);  // 10 kHz is above the new 8 kHz Nyquist
  double peak = 0.0;
  for (size_t i = 800; i + 800 < y.size(); ++i) peak = std::max(peak, std::fabs(static_cast<double>(y[i])));
  EXPECT_LT(peak, 0.5e-3);
}

TEST(SimNoise, SnrIsMeasuredOnTheActivePartOfTheTalker) {
  const std::vector<float> speech = makeVoicedSpeech(4.0, 48000, 3);
  std::vector<float> withPause(speech);
  withPause.resize(speech.size() * 2, 0.0f);  // as much silence again
  EXPECT_NEAR(activePower(speech, 48000), activePower(withPause, 48000), 1e-9);
  for (NoiseColour c : {NoiseColour::White, NoiseColour::Pink}) {
    const std::vector<float> noise = makeNoise(c, 96000, 5);
    EXPECT_NEAR(1.0, meanPower(noise), 0.05);
    const double k = noiseScaleForSnr(activePower(speech, 48000), meanPower(noise), 10.0);
    EXPECT_NEAR(10.0, 10 * std::log10(activePower(speech, 48000) / (k * k * meanPower(noise))), 1e-6);
  }
}

TEST(SimNoise, PinkNoiseDensityFallsThreeDecibelsPerOctave) {
  const std::vector<float> pink = makeNoise(NoiseColour::Pink, 48000, 9);
  auto density = [&](double f0) {  // mean periodogram over 20 frequencies from f0 up, 1 Hz resolution
    double sum = 0.0;
    for (int k = 0; k < 20; ++k) {
      const double f = f0 + 3.0 * k;
      double re = 0.0, im = 0.0;
      for (size_t i = 0; i < pink.size(); ++i) {
        re += pink[i] * std::cos(2 * M_PI * f * i / 48000);
        im += pink[i] * std::sin(2 * M_PI * f * i / 48000);
      }
      sum += re * re + im * im;
    }
    return sum;
  };
  // 300 Hz and 2400 Hz are three octaves apart.
  EXPECT_NEAR(9.0, 10 * std::log10(density(300) / density(2400)), 2.0);
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
