// Wire formats of the host line, shared by the daemon and the host console.
//
//   host command   81 01 group A B FF                 (no checksum)
//   position       FF 00 position 02 01 checksum      (checksum = low byte of 02 + 01 + position)
//   level report   FF mic1 .. mic8 line-in checksum   (checksum = low byte of the sum of the 9
//   codes)
//
// Besides these frames the device sends the plain texts "ymodem updata ok"
// and "ymodem updata err" at the end of a firmware transfer.
#pragma once
#include <cstddef>
#include <cstdint>

// Host command frame.
constexpr size_t kCommandFrameSize = 6;
constexpr uint8_t kCommandStart = 0x81;
constexpr uint8_t kCommandAddress = 0x01;
constexpr uint8_t kCommandEnd = 0xFF;
constexpr size_t kCommandGroupOffset = 2;
constexpr size_t kCommandParamAOffset = 3;
constexpr size_t kCommandParamBOffset = 4;

constexpr uint8_t kGroupSystem = 0x0D;  // reboot, get position
constexpr uint8_t kGroupTest = 0x0E;    // update, start and stop test

constexpr uint8_t kRebootA = 0x00, kRebootB = 0x01;
constexpr uint8_t kGetPositionA = 0x00, kGetPositionB = 0x02;
constexpr uint8_t kUpdateA = 0x7F, kUpdateB = 0x00;
constexpr uint8_t kStopTestA = 0x12, kStopTestB = 0x01;
// Every other A/B pair of the test group starts test mode:
// A = raw-dB bit | upper threshold, B = lower threshold.
constexpr uint8_t kRawDbBit = 0x80;
constexpr uint8_t kThresholdMask = 0x7F;

// Device frames start with this byte.
constexpr uint8_t kDeviceFrameStart = 0xFF;

// Position frame.
constexpr size_t kPositionFrameSize = 6;
constexpr uint16_t kPositionMessageCode = 0x0201;

// Position byte: a grid index 0..180 (index a is a - 90 degrees from
// broadside) or one of the status codes.
constexpr uint8_t kPositionLastIndex = 180;
constexpr int kPositionBroadsideIndex = 90;
constexpr uint8_t kPositionNone = 230;            // no direction known
constexpr uint8_t kPositionSpeakerPlaying = 231;  // loudspeaker playing, updates suspended

// Level report frame.
constexpr size_t kLevelFrameSize = 11;
constexpr size_t kLevelMicCount = 8;
constexpr size_t kLevelLineInOffset = 9;
constexpr size_t kLevelChecksumOffset = 10;
constexpr uint8_t kLevelAdequate = 0x01;  // at or above the upper threshold
constexpr uint8_t kLevelLow = 0x20;       // between the thresholds
constexpr uint8_t kLevelSilent = 0x10;    // below the lower threshold

inline void hostEncodeCommand(uint8_t group, uint8_t a, uint8_t b, uint8_t out[kCommandFrameSize]) {
  out[0] = kCommandStart;
  out[1] = kCommandAddress;
  out[kCommandGroupOffset] = group;
  out[kCommandParamAOffset] = a;
  out[kCommandParamBOffset] = b;
  out[5] = kCommandEnd;
}

// The message code goes out high byte first; the checksum is the low byte of
// code high + code low + position.
inline void hostEncodePosition(uint16_t code, uint8_t position, uint8_t out[kPositionFrameSize]) {
  const uint8_t codeHigh = static_cast<uint8_t>(code >> 8);
  const uint8_t codeLow = static_cast<uint8_t>(code & 0xFF);
  out[0] = kDeviceFrameStart;
  out[1] = 0x00;
  out[2] = position;
  out[3] = codeHigh;
  out[4] = codeLow;
  out[5] = static_cast<uint8_t>(codeHigh + codeLow + position);
}

// True when the 6 bytes are a well-formed position frame; stores its position.
inline bool hostDecodePosition(const uint8_t *frame, uint8_t *position) {
  uint8_t expected[kPositionFrameSize];
  hostEncodePosition(kPositionMessageCode, frame[2], expected);
  for (size_t i = 0; i < kPositionFrameSize; ++i)
    if (frame[i] != expected[i]) return false;
  *position = frame[2];
  return true;
}

inline uint8_t hostLevelChecksum(const uint8_t *frame) {
  uint8_t sum = 0;
  for (size_t i = 1; i <= kLevelLineInOffset; ++i) sum = static_cast<uint8_t>(sum + frame[i]);
  return sum;
}

// Writes the start byte and the checksum of a level report whose codes are set.
inline void hostSealLevelFrame(uint8_t frame[kLevelFrameSize]) {
  frame[0] = kDeviceFrameStart;
  frame[kLevelChecksumOffset] = hostLevelChecksum(frame);
}

inline bool hostLevelFrameValid(const uint8_t *frame) {
  return frame[0] == kDeviceFrameStart && frame[kLevelChecksumOffset] == hostLevelChecksum(frame);
}
