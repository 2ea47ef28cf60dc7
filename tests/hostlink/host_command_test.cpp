// Host command frames: decoding, thresholds, and the reader over a byte stream.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <thread>
#include <vector>

#include "hostlink/host_command.h"
#include "hostlink/host_protocol.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

HostCommand decode(std::initializer_list<uint8_t> bytes) {
  uint8_t frame[kCommandFrameSize] = {};
  std::copy(bytes.begin(), bytes.end(), frame);
  return hostDecodeFrame(frame);
}

HostCommandKind kindOf(std::initializer_list<uint8_t> bytes) { return decode(bytes).kind; }

// A scripted line: each chunk is handed out by receive calls (cut to the
// length asked for); an empty chunk is one receive that found nothing. The
// end of the script clears the run flag.
std::deque<std::vector<uint8_t>> script;
int32_t scriptRun = 1;

int scriptedRecv(uint8_t *buf, int len) {
  if (script.empty()) {
    scriptRun = 0;
    return -1;
  }
  std::vector<uint8_t> &chunk = script.front();
  if (chunk.empty()) {
    script.pop_front();
    return -1;
  }
  const int n = std::min(len, static_cast<int>(chunk.size()));
  std::copy(chunk.begin(), chunk.begin() + n, buf);
  chunk.erase(chunk.begin(), chunk.begin() + n);
  if (chunk.empty()) script.pop_front();
  return n;
}

std::vector<HostCommandKind> executed;
void record(const HostCommand &command) { executed.push_back(command.kind); }

// Runs the command loop over the chunks; returns what it executed and
// leaves the console output in `log`.
std::vector<HostCommandKind> readAll(std::deque<std::vector<uint8_t>> chunks, std::string *log = nullptr) {
  script = std::move(chunks);
  executed.clear();
  scriptRun = 1;
  gHostCtrl = HostCtrl{};
  gHostCtrl.uartOpened = 1;
  testing::internal::CaptureStdout();
  hostCommandLoop(scriptedRecv, record, scriptRun);
  const std::string out = testing::internal::GetCapturedStdout();
  if (log) *log = out;
  return executed;
}

using K = HostCommandKind;

}  // namespace

TEST(HostDecode, RecognisesEveryCommand) {
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0D, 0x00, 0x01, 0xFF}), K::Reboot);
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF}), K::GetPosition);
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFF}), K::Update);
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0E, 0x12, 0x01, 0xFF}), K::StopTest);
  const HostCommand start = decode({0x81, 0x01, 0x0E, 0x85, 0x1E, 0xFF});
  EXPECT_EQ(start.kind, K::StartTest);
  EXPECT_EQ(start.a, 0x85);
  EXPECT_EQ(start.b, 0x1E);
  // Near misses of update and stop start test mode.
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0E, 0x7F, 0x01, 0xFF}), K::StartTest);
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0E, 0x12, 0x05, 0xFF}), K::StartTest);
}

TEST(HostDecode, MalformedOrUnknownFramesAreIgnored) {
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFE}), K::Ignored);  // bad end byte
  EXPECT_EQ(kindOf({0x81, 0x02, 0x0D, 0x00, 0x02, 0xFF}), K::Ignored);  // bad address
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0C, 0x00, 0x02, 0xFF}), K::Ignored);  // unknown group
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0D, 0x00, 0x03, 0xFF}), K::Ignored);  // unknown system command
  EXPECT_EQ(kindOf({0x81, 0x01, 0x0D, 0x01, 0x02, 0xFF}), K::Ignored);
  EXPECT_EQ(kindOf({0x80, 0x01, 0x0D, 0x00, 0x02, 0xFF}), K::Ignored);  // bad start byte
}

struct ThresholdCase {
  uint8_t a, b;
  int32_t retMode;
  uint32_t max, min;
};

class HostThresholds : public testing::TestWithParam<ThresholdCase> {};

TEST_P(HostThresholds, FollowSwapAndDefaultRules) {
  const ThresholdCase c = GetParam();
  const TestThresholds t = hostTestThresholds(c.a, c.b);
  EXPECT_EQ(t.sendRetMode, c.retMode);
  EXPECT_EQ(t.micDBmax, c.max);
  EXPECT_EQ(t.micDBmin, c.min);
}

INSTANTIATE_TEST_SUITE_P(
    Edges, HostThresholds,
    testing::Values(ThresholdCase{0x12, 0x05, 0, 18, 5},      // plain
                    ThresholdCase{0x00, 0x00, 0, 95, 90},     // both defaulted
                    ThresholdCase{0x85, 0x1E, 1, 30, 5},      // raw dB, swapped
                    ThresholdCase{0x32, 0x00, 0, 50, 90},     // lower default lands above the upper
                    ThresholdCase{0x00, 0x05, 0, 5, 90},      // swap brings a zero lower threshold
                    ThresholdCase{0x80, 0x00, 1, 95, 90},     // raw dB bit alone
                    ThresholdCase{0xFF, 0xFF, 1, 127, 127},   // bit 7 of B is dropped
                    ThresholdCase{0x14, 0x14, 0, 20, 20}));   // equal: no swap

TEST(HostReader, SkipsGarbageBeforeAFrameAndPrintsEachTestedByte) {
  std::string log;
  EXPECT_THAT(readAll({{0x00, 0x12, 0xFF, 0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF}}, &log),
              ElementsAre(K::GetPosition));
  EXPECT_THAT(log, HasSubstr("recv data : 0\nrecv data : 12\nrecv data : ff\nrecv data : 81\n"));
  EXPECT_THAT(log, testing::Not(HasSubstr("recv data : d\n")));  // frame bytes are not tested
}

TEST(HostReader, WaitsThroughEmptyReceivesForTheRestOfAFrame) {
  EXPECT_THAT(readAll({{0x81}, {}, {}, {0x01, 0x0E}, {}, {0x12}, {0x01, 0xFF}}),
              ElementsAre(K::StopTest));
}

TEST(HostReader, ReadsBackToBackFramesAndDropsBadOnes) {
  EXPECT_THAT(readAll({{0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFE,    // bad end byte
                        0x81, 0x01, 0x0D, 0x00, 0x01, 0xFF,    // reboot
                        0x81, 0x01, 0x0E, 0x12, 0x01, 0xFF,    // stop test
                        0x81, 0x01, 0x0D}}),                   // partial: never completes
              ElementsAre(K::Ignored, K::Reboot, K::StopTest));
}

TEST(HostReader, StaysOffTheLineWhileAnUpdateOwnsIt) {
  script = {{0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF}};
  executed.clear();
  scriptRun = 1;
  gHostCtrl = HostCtrl{};
  gHostCtrl.uartOpened = 1;
  gHostCtrl.isUpdating = 1;
  std::thread reader([] { hostCommandLoop(scriptedRecv, record, scriptRun); });
  usleep(250000);  // two idle pauses
  EXPECT_EQ(script.size(), 1u);  // not a byte read
  __atomic_store_n(&scriptRun, 0, __ATOMIC_RELEASE);
  reader.join();
  EXPECT_TRUE(executed.empty());
}
