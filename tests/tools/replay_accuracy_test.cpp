// End to end through the offline tools: a talker simulated from a direction,
// in noise, must be published within 2 degrees by the replay path (the
// daemon's per-frame path); noise alone and the loudspeaker alone must
// publish no direction.
#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "support/sandbox.h"
#include "tool_run.h"

namespace {
constexpr int kNone = 230, kFarEnd = 231;
// The first direction comes about 1.1 s after the talker starts.
constexpr double kSettleSeconds = 2.5;

struct ReplayLine {
  double time;
  int angle;  // the published byte: 0..180 direction index, 230 none, 231 loudspeaker
};

// The replay tool's "time_seconds,angle_byte" lines for a simulated recording.
std::vector<ReplayLine> simulateAndReplay(const std::string &simArgs) {
  EXPECT_EQ(0, runTool(QV_SIMULATE_PATH " " + simArgs + " array.wav linein.wav 2>/dev/null").status)
      << simArgs;
  const ToolResult replay =
      runTool(std::string(QV_REPLAY_PATH) + " array.wav linein.wav 2>/dev/null");
  EXPECT_EQ(0, replay.status);
  std::istringstream in(replay.output);
  std::vector<ReplayLine> lines;
  char comma;
  for (ReplayLine l{}; in >> l.time >> comma >> l.angle;) lines.push_back(l);
  return lines;
}
}  // namespace

// A talker in noise: from the settling time on, half the frames or more
// publish a direction, and none is more than 2 degrees off. A moving talker is
// checked between its moves, with a second more to settle after one.
TEST(ReplayAccuracy, TalkerInNoiseIsPublishedWithinTwoDegrees) {
  Sandbox box;
  // The simulator's arguments, the talker's direction, and the seconds between which it holds.
  const std::tuple<const char *, int, double, double> cases[] = {
      {"--snr 10 synthetic:6 -60", -60, kSettleSeconds, 99},
      {"--snr 10 --noise white synthetic:6 -20", -20, kSettleSeconds, 99},
      {"--snr 10 synthetic:6 35", 35, kSettleSeconds, 99},
      {"--snr 15 synthetic:6 70", 70, kSettleSeconds, 99},
      {"--snr 15 synthetic:10 0:-30,5:45", -30, kSettleSeconds, 5},
      {"--snr 15 synthetic:10 0:-30,5:45", 45, 5 + kSettleSeconds + 1, 99}};
  for (const auto &[args, theta, from, to] : cases) {
    const std::vector<ReplayLine> lines = simulateAndReplay(args);
    ASSERT_GT(lines.size(), 200u) << args;  // one line per 20 ms frame
    int considered = 0, published = 0;
    for (const ReplayLine &l : lines) {
      if (l.time <= from || l.time > to) continue;
      ++considered;
      published += l.angle <= 180;
      EXPECT_TRUE(l.angle > 180 || std::abs(l.angle - 90 - theta) <= 2)
          << args << ": " << l.angle << " at " << l.time;
    }
    EXPECT_GE(published, considered / 2) << args << ": too few frames publish a direction";
  }
}

TEST(ReplayAccuracy, NoiseAloneSilenceAndTheLoudspeakerAlonePublishNoDirection) {
  Sandbox box;
  for (const char *args : {"--noise-level -50 --seconds 5 none 0", "--seconds 3 none 0"})
    for (const ReplayLine &l : simulateAndReplay(args))
      ASSERT_EQ(kNone, l.angle) << args << " at " << l.time;

  ASSERT_EQ(0,
            runTool(QV_SIMULATE_PATH " synthetic:5 0 programme.wav unused.wav 2>/dev/null").status);
  int latched = 0;
  for (const ReplayLine &l :
       simulateAndReplay("--speaker programme.wav --speaker-level -20 --noise-level -60 none 0")) {
    ASSERT_TRUE(l.angle == kNone || l.angle == kFarEnd)
        << "direction " << l.angle << " at " << l.time;
    latched += l.time > kSettleSeconds && l.angle == kFarEnd;
  }
  EXPECT_GT(latched, 0) << "the loudspeaker was never reported";
}
