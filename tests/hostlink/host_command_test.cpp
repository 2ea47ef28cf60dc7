// Host command frames: decoding, thresholds, and the reader over a byte stream.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <thread>
#include <tuple>
#include <vector>

#include "hostlink/host_command.h"
#include "hostlink/host_protocol.h"

using testing::ElementsAre;
using K = HostCommandKind;

namespace {

// A scripted line: each chunk is handed out by receive calls (cut to the
// length asked for); an empty chunk is one receive that found nothing. The
// end of the script clears the run flag.
std::deque<std::vector<uint8_t>> script;
int32_t scriptRun = 1;
std::vector<K> executed;

int scriptedRecv(uint8_t *buf, int len) {
  if (script.empty()) {
    scriptRun = 0;
    return -1;
  }
  std::vector<uint8_t> &chunk = script.front();
  const int n = std::min(len, static_cast<int>(chunk.size()));
  std::copy(chunk.begin(), chunk.begin() + n, buf);
  chunk.erase(chunk.begin(), chunk.begin() + n);
  if (chunk.empty()) script.pop_front();
  return n > 0 ? n : -1;
}

void record(const HostCommand &command) { executed.push_back(command.kind); }

std::vector<K> readAll(std::deque<std::vector<uint8_t>> chunks, int32_t updating = 0) {
  script = std::move(chunks);
  scriptRun = 1;
  gHostCtrl = HostCtrl{};
  gHostCtrl.uartOpened = 1;
  gHostCtrl.isUpdating = updating;
  testing::internal::CaptureStdout();
  hostCommandLoop(scriptedRecv, record, scriptRun);
  testing::internal::GetCapturedStdout();
  return executed;
}

struct DecodeCase {
  std::vector<uint8_t> frame;
  K kind;
};

}  // namespace

TEST(HostDecode, RecognisesCommandsAndIgnoresMalformedFrames) {
  const DecodeCase cases[] = {
      {{0x81, 0x01, 0x0D, 0x00, 0x01, 0xFF}, K::Reboot},
      {{0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF}, K::GetPosition},
      {{0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFF}, K::Update},
      {{0x81, 0x01, 0x0E, 0x12, 0x01, 0xFF}, K::StopTest},
      {{0x81, 0x01, 0x0E, 0x7F, 0x01, 0xFF}, K::StartTest},  // near misses of update and stop
      {{0x81, 0x01, 0x0E, 0x12, 0x05, 0xFF}, K::StartTest},
      {{0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFE}, K::Ignored},  // bad end byte
      {{0x80, 0x01, 0x0D, 0x00, 0x02, 0xFF}, K::Ignored},  // bad start byte
      {{0x81, 0x02, 0x0D, 0x00, 0x02, 0xFF}, K::Ignored},  // bad address
      {{0x81, 0x01, 0x0C, 0x00, 0x02, 0xFF}, K::Ignored},  // unknown group
      {{0x81, 0x01, 0x0D, 0x00, 0x03, 0xFF}, K::Ignored},  // unknown system command
      {{0x81, 0x01, 0x0D, 0x01, 0x02, 0xFF}, K::Ignored},
  };
  for (const DecodeCase &c : cases) EXPECT_EQ(hostDecodeFrame(c.frame.data()).kind, c.kind) << int(c.frame[4]);
  const HostCommand start = hostDecodeFrame(std::vector<uint8_t>{0x81, 0x01, 0x0E, 0x85, 0x1E, 0xFF}.data());
  EXPECT_EQ(start.a, 0x85);
  EXPECT_EQ(start.b, 0x1E);
}

TEST(HostThresholds, FollowSwapAndDefaultRules) {
  struct { uint8_t a, b; int32_t retMode; uint32_t max, min; } const cases[] = {
      {0x12, 0x05, 0, 18, 5},     // plain
      {0x00, 0x00, 0, 95, 90},    // both defaulted
      {0x85, 0x1E, 1, 30, 5},     // raw dB, swapped
      {0x32, 0x00, 0, 50, 90},    // lower default lands above the upper
      {0x00, 0x05, 0, 5, 90},     // swap brings a zero lower threshold
      {0x80, 0x00, 1, 95, 90},    // raw dB bit alone
      {0xFF, 0xFF, 1, 127, 127},  // bit 7 of B is dropped
      {0x14, 0x14, 0, 20, 20},    // equal: no swap
  };
  for (const auto &c : cases) {
    const TestThresholds t = hostTestThresholds(c.a, c.b);
    EXPECT_EQ(std::make_tuple(t.sendRetMode, t.micDBmax, t.micDBmin), std::make_tuple(c.retMode, c.max, c.min))
        << std::hex << int(c.a) << " " << int(c.b);
  }
}

TEST(HostReader, SkipsGarbageReadsSplitAndBackToBackFramesAndDropsBadOnes) {
  EXPECT_THAT(readAll({{0x00, 0x12, 0xFF, 0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF},  // garbage first
                       {0x81}, {}, {}, {0x01, 0x0E}, {}, {0x12}, {0x01, 0xFF},     // split by empty receives
                       {0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFE,                        // bad end byte
                        0x81, 0x01, 0x0D, 0x00, 0x01, 0xFF,                        // reboot
                        0x81, 0x01, 0x0D}}),                                       // partial: never completes
              ElementsAre(K::GetPosition, K::StopTest, K::Ignored, K::Reboot));
}

TEST(HostReader, StaysOffTheLineWhileAnUpdateOwnsIt) {
  std::thread stopper([] {
    usleep(250000);  // two idle pauses
    __atomic_store_n(&scriptRun, 0, __ATOMIC_RELEASE);
  });
  EXPECT_TRUE(readAll({{0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF}}, 1).empty());
  stopper.join();
  EXPECT_EQ(script.size(), 1u);  // not a byte read
}
