// The real daemon on the simulated board: what the host sees on the line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "simulated_board.h"

using testing::HasSubstr;

namespace {

// Recorded seconds per wall-clock second. The daemon drains its pools every
// 2 ms and the estimator takes well under a frame time per frame, so the
// board can be fed faster than real time; QV_E2E_SPEED overrides (1 = real time).
// Sanitizer builds run the estimator several times slower: real time there.
#if defined(__SANITIZE_ADDRESS__)
constexpr double kDefaultSpeed = 1.0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr double kDefaultSpeed = 1.0;
#else
constexpr double kDefaultSpeed = 2.0;
#endif
#else
constexpr double kDefaultSpeed = 2.0;
#endif

double feedSpeed() {
  const char *s = getenv("QV_E2E_SPEED");
  return s && atof(s) > 0 ? atof(s) : kDefaultSpeed;
}

constexpr int kTalkerDeg = 30;
constexpr int kTalkerIndex = kTalkerDeg + 90;
constexpr int kTolerance = 2;             // grid steps (degrees)
constexpr double kStartupSeconds = 3.0;   // the daemon's 1 s pause plus process start
constexpr uint8_t kNoDirection = 230;
const char kPosiLine[] = "----------------------------> posi : ";

bool near(uint8_t position, int index) {
  return position <= 180 && std::abs(position - index) <= kTolerance;
}

auto anyPosition = [](const std::vector<DeviceFrame> &f) {
  return std::any_of(f.begin(), f.end(),
                     [](const DeviceFrame &d) { return d.kind == DeviceFrame::Position; });
};
auto anyLevels = [](const std::vector<DeviceFrame> &f) {
  return std::any_of(f.begin(), f.end(),
                     [](const DeviceFrame &d) { return d.kind == DeviceFrame::Levels; });
};

size_t countOf(const std::string &text, const std::string &what) {
  return static_cast<size_t>(countOccurrences(text, what));
}

TEST(SimulatedBoard, HostReceivesTheTalkersDirection) {
  const double speed = feedSpeed();
  const double lead = 1.0, talk = 8.0;
  SimulatedBoard board(talkerAudio(kTalkerDeg, lead, talk), speed);

  // The estimator publishes about 1.1 s of speech after the talker starts.
  double budget = kStartupSeconds + (lead + 4.0) / speed;
  std::vector<DeviceFrame> got = board.read(budget, [](const std::vector<DeviceFrame> &f) {
    return std::any_of(f.begin(), f.end(), [](const DeviceFrame &d) {
      return d.kind == DeviceFrame::Position && near(d.position, kTalkerIndex);
    });
  });
  auto hit = std::find_if(got.begin(), got.end(), [](const DeviceFrame &d) {
    return d.kind == DeviceFrame::Position && near(d.position, kTalkerIndex);
  });
  ASSERT_NE(hit, got.end()) << "no direction near " << kTalkerIndex << " within " << budget
                            << " s\n" << board.log().substr(0, 3000);
  // Wall-clock seconds from the daemon's start; at speed 1 that is also the
  // recording's time, since the feeders start when the daemon opens its PCMs.
  RecordProperty("first_direction_after_daemon_start_s", std::to_string(hit->atSeconds));
  // No position frame ever claims a direction far from the only talker.
  for (const DeviceFrame &d : board.frames()) {
    if (d.kind == DeviceFrame::Position && d.position <= 180) {
      EXPECT_TRUE(near(d.position, kTalkerIndex)) << int(d.position);
    }
  }
  EXPECT_TRUE(board.daemonAlive());
}

TEST(SimulatedBoard, TestModeReportsLevelsInsteadOfPositionsUntilStopped) {
  const double speed = feedSpeed();
  // Microphones 1-3 loud (106 dB), 4-6 quiet (66 dB), 7-8 silent; line-in loud.
  const int16_t mics[8] = {1000, 1000, 1000, 10, 10, 10, 0, 0};
  SimulatedBoard board(levelAudio(mics, 1000, 40.0), speed);
  ASSERT_FALSE(board.read(kStartupSeconds + 2.0, anyPosition).empty())
      << "the first-minute re-send shows the line is up\n" << board.log();

  board.send(startTestCommand(90, 50, false));
  double period = 5.0 / speed;  // 250 frames
  std::vector<DeviceFrame> got = board.read(2 * period + 2.0, anyLevels);
  ASSERT_TRUE(anyLevels(got)) << board.log().substr(0, 4000);
  const DeviceFrame levels = got.back();
  const uint8_t codes[9] = {0x01, 0x01, 0x01, 0x20, 0x20, 0x20, 0x10, 0x10, 0x01};
  EXPECT_EQ(std::vector<uint8_t>(levels.codes, levels.codes + 9),
            std::vector<uint8_t>(codes, codes + 9));
  // The log reaches us through its own terminal, a moment behind the line.
  EXPECT_TRUE(board.waitForLog("->lowVolum", 3, 1.0)) << board.log();
  EXPECT_TRUE(board.waitForLog("->noVolum", 2, 1.0));

  // With the dB bit the next report carries the measured values themselves.
  board.send(startTestCommand(90, 50, true));
  got = board.read(2 * period + 2.0, anyLevels);
  ASSERT_TRUE(anyLevels(got));
  const uint8_t db[9] = {106, 106, 106, 66, 66, 66, 0, 0, 106};
  EXPECT_EQ(std::vector<uint8_t>(got.back().codes, got.back().codes + 9),
            std::vector<uint8_t>(db, db + 9));
  for (const DeviceFrame &d : got) EXPECT_NE(d.kind, DeviceFrame::Position) << "test mode";

  board.send(stopTestCommand());
  got = board.read(3.0, anyPosition);
  EXPECT_TRUE(anyPosition(got)) << "positions resume after stop test";
  EXPECT_TRUE(board.waitForLog("stop test mode..", 1, 1.0));
}

TEST(SimulatedBoard, CommandsAreAnsweredAndGarbageIsSkipped) {
  SimulatedBoard board(levelAudio({0, 0, 0, 0, 0, 0, 0, 0}, 0, 1.0), feedSpeed());
  ASSERT_FALSE(board.read(kStartupSeconds + 2.0, anyPosition).empty()) << board.log();
  // Silence: the position stays "no direction", so it is printed only on request.
  EXPECT_EQ(countOf(board.log(), kPosiLine), 0u);

  board.send(getPositionCommand());
  ASSERT_TRUE(board.waitForLog(std::string(kPosiLine) + "230", 1, 2.0)) << board.log();
  std::vector<DeviceFrame> got = board.read(0.5, anyPosition);
  ASSERT_TRUE(anyPosition(got));
  EXPECT_EQ(got.front().position, kNoDirection);

  // Noise, then frames that look almost right: none of them may act.
  board.send({0x00, 0xFF, 0x13, 0x7E, 0xFE, 0x80, 0x82, 0x01, 0x0D, 0x00, 0x01, 0xFF});
  board.send({0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFE});  // update with a bad end byte
  board.send({0x81, 0x02, 0x0D, 0x00, 0x01, 0xFF});  // reboot with a bad second byte
  board.send({0x81, 0x01, 0x0F, 0x00, 0x02, 0xFF});  // unknown group
  board.send({0x81, 0x01, 0x0D, 0x00, 0x03, 0xFF});  // unknown system command
  // A cut-off frame swallows the start of the next one, which is then lost too.
  board.send({0x81, 0x01, 0x0D});
  board.send(getPositionCommand());
  usleep(500000);
  EXPECT_EQ(countOf(board.log(), kPosiLine), 1u) << "nothing answered the broken frames";
  board.send(getPositionCommand());
  EXPECT_TRUE(board.waitForLog(kPosiLine, 2, 2.0)) << "back in step after the damage";
  EXPECT_EQ(board.file("commands.log"), "");
  EXPECT_THAT(board.log(), testing::Not(HasSubstr("start test mode")));
  EXPECT_THAT(board.log(), testing::Not(HasSubstr("recv update cmd")));

  board.send(rebootCommand());
  for (int i = 0; i < 60 && board.file("commands.log").empty(); ++i) usleep(50000);
  for (int i = 0; i < 60 && countOf(board.file("commands.log"), "reboot") == 0; ++i) usleep(50000);
  EXPECT_EQ(board.file("commands.log"), "sync\nreboot\n");
  EXPECT_TRUE(board.waitForLog("recv reboot cmd and reboot..", 1, 1.0));
  // The sandbox's reboot returns, and the daemon carries on.
  board.send(getPositionCommand());
  EXPECT_TRUE(board.waitForLog(kPosiLine, 3, 3.0));
  EXPECT_TRUE(board.daemonAlive());
  EXPECT_EQ(board.skippedBytes(), 0u) << "the device itself only sends whole frames";
}

}  // namespace
