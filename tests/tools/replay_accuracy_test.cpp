// End to end through the offline tools: a talker simulated from a direction,
// in noise, must be published within 2 degrees by the replay path (the
// daemon's per-frame path); noise alone and the loudspeaker alone must
// publish no direction.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "support/sandbox.h"
#include "tool_run.h"

namespace {
const std::string kSimulate = QV_SIMULATE_PATH;
const std::string kReplay = QV_REPLAY_PATH;
constexpr int kNone = 230, kFarEnd = 231;
constexpr double kSettleSeconds = 2.5;  // the first direction comes about 1.1 s after the talker starts

std::vector<ReplayLine> simulateAndReplay(const std::string &simArgs) {
  EXPECT_EQ(0, runTool(kSimulate + " " + simArgs + " array.wav linein.wav 2>/dev/null").status) << simArgs;
  const ToolResult rep = runTool(kReplay + " array.wav linein.wav 2>/dev/null");
  EXPECT_EQ(0, rep.status);
  return parseReplay(rep.output);
}

// Over the lines in (from, to]: how many, how many publish a direction, and its worst error.
struct Accuracy {
  int considered = 0, published = 0, worstError = 0;
};
Accuracy accuracyIn(const std::vector<ReplayLine> &lines, double from, double to, int thetaDeg) {
  Accuracy a;
  for (const ReplayLine &l : lines) {
    if (l.time <= from || l.time > to) continue;
    ++a.considered;
    if (l.angle > 180) continue;
    ++a.published;
    a.worstError = std::max(a.worstError, std::abs(l.angle - 90 - thetaDeg));
  }
  return a;
}
}  // namespace

TEST(ReplayAccuracy, TalkerInNoiseIsPublishedWithinTwoDegrees) {
  Sandbox box;
  // Real synthesised speech when espeak-ng is installed, else the synthetic voiced talker.
  const bool espeak = std::system("command -v espeak-ng >/dev/null 2>&1") == 0 &&
                      std::system("espeak-ng -w say.wav 'Please turn the light on in the kitchen, "
                                  "and tell me the weather for tomorrow morning, thank you.' 2>/dev/null") == 0;
  const std::string talker = espeak ? "say.wav" : "synthetic:6";
  const std::pair<int, const char *> cases[] = {{-60, "--snr 10"}, {-20, "--snr 10 --noise white"}, {35, "--snr 10"}, {70, "--snr 15"}};
  for (const auto &[theta, noise] : cases) {
    const std::vector<ReplayLine> lines = simulateAndReplay(std::string(noise) + " " + talker + " " + std::to_string(theta));
    ASSERT_GT(lines.size(), 200u);  // one line per 20 ms frame
    EXPECT_NEAR(0.02, lines.front().time, 1e-9);
    const Accuracy a = accuracyIn(lines, kSettleSeconds, lines.back().time, theta);
    EXPECT_GE(a.published, a.considered / 2) << theta << " deg: too few frames publish a direction";
    EXPECT_LE(a.worstError, 2) << theta << " deg " << noise << " " << talker;
  }
}

TEST(ReplayAccuracy, TalkerMovingBetweenDirectionsIsFollowed) {
  Sandbox box;
  const std::vector<ReplayLine> lines = simulateAndReplay("--snr 15 synthetic:10 0:-30,5:45");
  EXPECT_LE(accuracyIn(lines, kSettleSeconds, 5.0, -30).worstError, 2);
  const Accuracy second = accuracyIn(lines, 5.0 + kSettleSeconds + 1.0, 10.0, 45);
  EXPECT_GT(second.published, 0);
  EXPECT_LE(second.worstError, 2);
}

TEST(ReplayAccuracy, NoiseAloneSilenceAndTheLoudspeakerAlonePublishNoDirection) {
  Sandbox box;
  for (const char *args : {"--noise-level -50 --seconds 5 none 0", "--seconds 3 none 0"})
    for (const ReplayLine &l : simulateAndReplay(args)) ASSERT_EQ(kNone, l.angle) << args << " at " << l.time;

  ASSERT_EQ(0, runTool(kSimulate + " synthetic:5 0 programme.wav unused.wav 2>/dev/null").status);
  int latched = 0;
  for (const ReplayLine &l : simulateAndReplay("--speaker programme.wav --speaker-level -20 --noise-level -60 none 0")) {
    ASSERT_TRUE(l.angle == kNone || l.angle == kFarEnd) << "direction " << l.angle << " at " << l.time;
    latched += l.time > kSettleSeconds && l.angle == kFarEnd;
  }
  EXPECT_GT(latched, 0) << "the loudspeaker was never reported";
}
