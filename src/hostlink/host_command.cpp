#include "hostlink/host_command.h"

namespace {

constexpr uint32_t kDefaultMicDBmax = 95;  // upper threshold when the host sends 0
constexpr uint32_t kDefaultMicDBmin = 90;  // lower threshold when the host sends 0
constexpr int kRawDbShift = 7;             // the raw-dB flag is bit 7 of A

HostCommandKind decodeTestGroup(uint8_t a, uint8_t b) {
  if (a == kUpdateA && b == kUpdateB) return HostCommandKind::Update;
  if (a == kStopTestA && b == kStopTestB) return HostCommandKind::StopTest;
  return HostCommandKind::StartTest;
}

HostCommandKind decodeSystemGroup(uint8_t a, uint8_t b) {
  if (a == kRebootA && b == kRebootB) return HostCommandKind::Reboot;
  if (a == kGetPositionA && b == kGetPositionB) return HostCommandKind::GetPosition;
  return HostCommandKind::Ignored;
}

}  // namespace

HostCommand hostDecodeFrame(const uint8_t frame[kCommandFrameSize]) {
  const uint8_t a = frame[kCommandParamAOffset];
  const uint8_t b = frame[kCommandParamBOffset];
  HostCommand command{HostCommandKind::Ignored, a, b};
  if (frame[0] != kCommandStart || frame[1] != kCommandAddress ||
      frame[kCommandFrameSize - 1] != kCommandEnd)
    return command;
  switch (frame[kCommandGroupOffset]) {
    case kGroupTest: command.kind = decodeTestGroup(a, b); break;
    case kGroupSystem: command.kind = decodeSystemGroup(a, b); break;
    default: break;
  }
  return command;
}

TestThresholds hostTestThresholds(uint8_t a, uint8_t b) {
  TestThresholds t{a >> kRawDbShift, static_cast<uint32_t>(a & kThresholdMask),
                   static_cast<uint32_t>(b & kThresholdMask)};
  if (t.micDBmax < t.micDBmin) {
    const uint32_t upper = t.micDBmin;
    t.micDBmin = t.micDBmax;
    t.micDBmax = upper;
  } else if (t.micDBmax == 0) {
    t.micDBmax = kDefaultMicDBmax;
  }
  if (t.micDBmin == 0) t.micDBmin = kDefaultMicDBmin;
  return t;
}
