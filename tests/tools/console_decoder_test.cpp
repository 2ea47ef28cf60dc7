// The host console's decoder: what the device sends, however the line cuts
// it into reads, comes out as the same events.
#include "console_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes position(uint8_t index) {
  Bytes b(kPositionFrameSize);
  hostEncodePosition(kPositionMessageCode, index, b.data());
  return b;
}

Bytes levels(std::initializer_list<uint8_t> codes, bool sealed = true) {
  Bytes b(kLevelFrameSize);
  std::copy(codes.begin(), codes.end(), b.begin() + 1);
  hostSealLevelFrame(b.data());
  if (!sealed) ++b[kLevelChecksumOffset];
  return b;
}

Bytes text(const char *s) { return Bytes(s, s + strlen(s)); }

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes &p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

std::string decode(const Bytes &stream, size_t chunk, bool rawDb) {
  ConsoleDecoder decoder;
  std::vector<ConsoleEvent> events;
  for (size_t i = 0; i < stream.size(); i += chunk)
    decoder.feed(stream.data() + i, std::min(chunk, stream.size() - i), events);
  decoder.flush(events);
  std::string lines;
  for (const ConsoleEvent &e : events) lines += formatEvent(e, rawDb) + "\n";
  return lines;
}

TEST(ConsoleDecoder, FramesAndTextComeOutTheSameForEveryReadSize) {
  const uint8_t ok = kLevelAdequate, low = kLevelLow, off = kLevelSilent;
  struct Case {
    const char *what;
    Bytes stream;
    bool rawDb;
    const char *lines;
  } cases[] = {
      {"positions at both ends of the grid and the two status codes",
       cat({position(0), position(120), position(180), position(230), position(231)}), false,
       "position 0: -90 degrees\nposition 120: 30 degrees\nposition 180: 90 degrees\n"
       "position 230: no direction\nposition 231: loudspeaker playing\n"},
      {"a position index beyond the grid", position(200), false, "position 200: unknown code\n"},
      {"text around a frame is cut at the frame", cat({text("up\n"), position(90), text("ok")}),
       false, "text \"up\\x0a\"\nposition 90: 0 degrees\ntext \"ok\"\n"},
      {"a level report in codes", levels({ok, low, off, ok, ok, ok, ok, low, off}), false,
       "levels mic1=ok mic2=low mic3=silent mic4=ok mic5=ok mic6=ok mic7=ok mic8=low "
       "line-in=silent\n"},
      {"a level report in dB", levels({60, 61, 62, 63, 64, 65, 66, 67, 3}), true,
       "levels (dB) mic1=60 mic2=61 mic3=62 mic4=63 mic5=64 mic6=65 mic7=66 mic8=67 line-in=3\n"},
      {"codes with a wrong checksum are still a report, marked",
       levels({ok, ok, ok, ok, ok, ok, ok, ok, ok}, false), false,
       "level report with bad checksum: ff 01 01 01 01 01 01 01 01 01 0a\n"},
      {"a start byte that begins no frame is text",
       cat({levels({60, 61, 62, 63, 64, 65, 66, 67, 3}, false), position(10)}), false,
       "text \"\\xff<=>?@ABC\\x03\\x00\"\nposition 10: -80 degrees\n"},
      {"a frame cut short by a quiet line is text", Bytes{0xFF, 0x00, 0x78}, false,
       "text \"\\xff\\x00x\"\n"},
  };
  for (const Case &c : cases)
    for (size_t chunk : {c.stream.size(), size_t(1), size_t(4)})
      EXPECT_EQ(decode(c.stream, chunk, c.rawDb), c.lines) << c.what << ", reads of " << chunk;
}

}  // namespace
