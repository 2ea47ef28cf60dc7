// The fast arithmetic publishes what the reference arithmetic does: the whole
// pipeline over simulated recordings, once each way. Directions may differ only
// where a near-tie between two angles or a threshold falls the other way on a
// last-bit difference: at most 0.1 % of frames, and never by more than one step.
// A talker standing still is published within 2 degrees of where it stands (the
// scan's accuracy across the arc, up to endfire).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "orienangle/estimator/angle_pipeline.h"
#include "sim/noise.h"
#include "sim/voiced_speech.h"
#include "test_signals.h"

namespace {

constexpr size_t kRate = 48000;

struct Recording {
  size_t n;
  std::vector<float> planes, line;  // 8 planes of n samples and the line-in, 16-bit scale
};

// A talker (`theta` per sample, silent for the first 0.5 s) with pink noise
// `snrDb` below it at every microphone; `speakerFrom` > 0 adds the loudspeaker
// playing other speech from -70 degrees from that sample on, copied to the
// line-in.
Recording record(double seconds, const std::vector<double> &theta, double snrDb, size_t speakerFrom,
                 uint32_t seed) {
  const size_t n = theta.size();
  Recording r{n, std::vector<float>(ORIEN_MIC_NUM * n), std::vector<float>(n)};
  std::vector<float> talker(kRate / 2), speech = makeVoicedSpeech(seconds, kRate, seed);
  talker.insert(talker.end(), speech.begin(), speech.end());  // after 0.5 s of noise alone
  talker.resize(r.n);
  planeWaveRenderPath(talker.data(), r.n, theta.data(), r.planes.data());
  if (speakerFrom > 0) {
    const std::vector<float> played = makeVoicedSpeech(seconds, kRate, seed + 100);
    for (size_t i = speakerFrom; i < r.n; ++i) r.line[i] = played[i - speakerFrom];
    const std::vector<float> heard = testsig::arrayFrom(r.line, -70.0);
    for (size_t i = 0; i < r.planes.size(); ++i) r.planes[i] += heard[i];
  }
  const double scale = std::sqrt(activePower(talker, kRate)) * std::pow(10.0, -snrDb / 20.0);
  for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
    const std::vector<float> hiss = makeNoise(NoiseColour::Pink, r.n, seed * 31 + m);
    for (size_t i = 0; i < r.n; ++i) r.planes[m * r.n + i] += static_cast<float>(scale * hiss[i]);
  }
  for (std::vector<float> *v : {&r.planes, &r.line})
    for (float &x : *v) x = std::nearbyint(x * 32767.0f);  // 16-bit samples
  return r;
}

std::vector<uint8_t> publish(const Recording &r, bool reference) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  EXPECT_EQ(reference ? orienAngleEstimatorUseReferenceArithmetic(est) : 0, 0);
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  std::vector<uint8_t> out;
  uint8_t angle, aux;
  for (size_t f = 0; f < r.n / ORIEN_FRAME_SIZE; ++f) {
    testsig::frameOf(r.planes, r.n, f, frame.data());
    angleFrameProcess(est, frame.data(), frame.data(), r.line.data() + f * ORIEN_FRAME_SIZE, &angle,
                      &aux);
    out.push_back(angle);
  }
  orienAngleEstimatorDestroy(est);
  return out;
}

TEST(DirectionIdentity, FastAndReferenceArithmeticPublishTheSameDirections) {
  struct Case {
    double seconds, from, to, snrDb, speakerAt;  // talker moves from -> to; speaker start in s
  };
  const Case cases[] = {{3, -62, -62, 25, 0}, {3, 17, 17, 15, 0}, {3, 81, 81, 15, 0},
                        {5, 45, 0, 20, 0},    {5, 60, 60, 20, 2}, {3, -8, -8, 10, 0}};
  size_t frames = 0, differing = 0, decided = 0;
  uint32_t seed = 1;
  for (const Case &c : cases) {
    const size_t n = static_cast<size_t>(c.seconds * kRate);
    std::vector<double> theta(n);
    for (size_t i = 0; i < n; ++i) theta[i] = c.from + (c.to - c.from) * static_cast<double>(i) / n;
    const Recording r =
        record(c.seconds, theta, c.snrDb, static_cast<size_t>(c.speakerAt * kRate), seed++);
    const std::vector<uint8_t> fast = publish(r, false), plain = publish(r, true);
    frames += fast.size();
    for (size_t f = 0; f < fast.size(); ++f) {
      decided += plain[f] <= 180;
      // A still talker is found within 2 degrees.
      EXPECT_TRUE(c.from != c.to || plain[f] > 180 || std::abs(plain[f] - (c.from + 90)) <= 2)
          << "talker " << c.from << " frame " << f << ": " << int(plain[f]);
      if (fast[f] == plain[f]) continue;
      ++differing;
      EXPECT_TRUE(fast[f] <= 180 && plain[f] <= 180 && std::abs(fast[f] - plain[f]) <= 1)
          << "talker " << c.from << " frame " << f << ": " << int(fast[f]) << " vs "
          << int(plain[f]);
    }
  }
  EXPECT_LE(differing * 1000, frames) << differing << " of " << frames << " frames differ";
  EXPECT_GT(decided, frames / 3);  // directions were published, not only 230
}

}  // namespace
