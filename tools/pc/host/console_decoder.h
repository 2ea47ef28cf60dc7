// Decoding of what the device sends on the host line, for the host console:
// position frames, level reports, and anything else as text.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hostlink/host_frames.h"

struct ConsoleEvent {
  enum Kind { Position, Levels, LevelsBadChecksum, Text };
  Kind kind = Text;
  uint8_t position = 0;                    // Position
  uint8_t codes[kLevelMicCount + 1] = {};  // Levels: mic1..mic8, line-in
  std::string text;                        // Text: the bytes as they came
};

class ConsoleDecoder {
 public:
  // Decodes what it can; an incomplete frame at the end waits for more bytes.
  void feed(const uint8_t *data, size_t len, std::vector<ConsoleEvent> &out);
  // The line went quiet: nothing more will complete what is pending.
  void flush(std::vector<ConsoleEvent> &out);

 private:
  void decode(bool quiet, std::vector<ConsoleEvent> &out);
  void emitText(std::vector<ConsoleEvent> &out);
  std::vector<uint8_t> pending_;
  std::string text_;
};

// "37: -53 degrees", "230: no direction", "231: loudspeaker playing".
std::string describePosition(uint8_t position);
// One line per event. rawDb: level reports carry dB values instead of codes.
std::string formatEvent(const ConsoleEvent &event, bool rawDb);
// Printable text kept, other bytes as \xNN.
std::string escapeText(const std::string &bytes);
