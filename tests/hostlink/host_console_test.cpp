// The host console: decoding of what the device sends, and the tool itself
// driving a pseudo-terminal that plays the board.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "console_decoder.h"
#include "hostlink/host_frames.h"
#include "pty_line.h"
#include "support/sandbox.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::string> decodeLines(const Bytes &bytes, bool rawDb = false, size_t chunk = 1) {
  ConsoleDecoder decoder;
  std::vector<ConsoleEvent> events;
  for (size_t i = 0; i < bytes.size(); i += chunk)
    decoder.feed(bytes.data() + i, std::min(chunk, bytes.size() - i), events);
  decoder.flush(events);
  std::vector<std::string> lines;
  for (const ConsoleEvent &e : events) lines.push_back(formatEvent(e, rawDb));
  return lines;
}

Bytes positionFrame(uint8_t p) {
  Bytes f(kPositionFrameSize);
  hostEncodePosition(kPositionMessageCode, p, f.data());
  return f;
}

Bytes levelFrame(std::initializer_list<uint8_t> codes) {
  Bytes f(kLevelFrameSize);
  std::copy(codes.begin(), codes.end(), f.begin() + 1);
  hostSealLevelFrame(f.data());
  return f;
}

Bytes text(const std::string &s) { return Bytes(s.begin(), s.end()); }

// Runs the console tool on the pty's slave; returns its output.
std::string runConsole(const PtyLine &line, const std::string &args) {
  const std::string cmd = std::string(QV_HOST_CONSOLE_PATH) + " --device " + line.slavePath() + " " + args + " 2>&1";
  FILE *pipe = popen(cmd.c_str(), "r");
  std::string out;
  char buf[256];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  pclose(pipe);
  return out;
}

}  // namespace

TEST(ConsoleDecoder, PositionsInDegreesAndStatusCodesInWords) {
  EXPECT_THAT(decodeLines(positionFrame(37) + positionFrame(0) + positionFrame(180) +
                          positionFrame(230) + positionFrame(231) + positionFrame(200)),
              ElementsAre("position 37: -53 degrees", "position 0: -90 degrees",
                          "position 180: 90 degrees", "position 230: no direction",
                          "position 231: loudspeaker playing", "position 200: unknown code"));
}

TEST(ConsoleDecoder, LevelReportsWithCheckedChecksum) {
  const Bytes report = levelFrame({0x01, 0x20, 0x10, 0x01, 0x01, 0x01, 0x01, 0x10, 0x20});
  EXPECT_THAT(decodeLines(report),
              ElementsAre("levels mic1=ok mic2=low mic3=silent mic4=ok mic5=ok mic6=ok "
                          "mic7=ok mic8=silent line-in=low"));
  Bytes broken = report;
  broken[10] ^= 0x40;
  EXPECT_THAT(decodeLines(broken), ElementsAre(HasSubstr("level report with bad checksum: ff 01 20 10")));
  EXPECT_THAT(decodeLines(levelFrame({45, 46, 47, 48, 49, 50, 51, 52, 0}), true),
              ElementsAre("levels (dB) mic1=45 mic2=46 mic3=47 mic4=48 mic5=49 mic6=50 "
                          "mic7=51 mic8=52 line-in=0"));
}

TEST(ConsoleDecoder, OtherBytesAreTextAroundFrames) {
  EXPECT_THAT(decodeLines(text("ymodem updata ok"), false, 5), ElementsAre("text \"ymodem updata ok\""));
  // Frames split across reads are reassembled.
  const Bytes mixed = text("ab\n") + positionFrame(90) + levelFrame({1, 1, 1, 1, 1, 1, 1, 1, 1}) +
                      Bytes{0xFF, 0x07};
  for (size_t chunk : {1, 5, 64})
    EXPECT_THAT(decodeLines(mixed, false, chunk),
                ElementsAre("text \"ab\\x0a\"", "position 90: 0 degrees", HasSubstr("levels mic1=ok"),
                            "text \"\\xff\\x07\""))
        << "chunk " << chunk;
}

TEST(HostConsoleTool, AsksForThePositionAndPrintsTheAnswer) {
  Sandbox sandbox;
  PtyLine line;
  std::thread board([&] {
    if (line.receive(kCommandFrameSize) == Bytes{0x81, 0x01, 0x0D, 0x00, 0x02, 0xFF})
      line.send(text("recv") + positionFrame(37));
  });
  const std::string out = runConsole(line, "--get-position --listen 0.5");
  board.join();
  EXPECT_THAT(out, HasSubstr("sent get-position: 81 01 0d 00 02 ff\n"));
  EXPECT_THAT(out, HasSubstr("text \"recv\"\nposition 37: -53 degrees\n"));
}

TEST(HostConsoleTool, SendsTestCommandsInOrderAndRefusesCollidingThresholds) {
  Sandbox sandbox;
  PtyLine line;
  runConsole(line, "--raw-db --start-test 30 5 --stop-test --reboot --update");
  EXPECT_EQ(line.receiveAll(), (Bytes{0x81, 0x01, 0x0E, 0x9E, 0x05, 0xFF,     // start, raw dB
                                      0x81, 0x01, 0x0E, 0x12, 0x01, 0xFF,     // stop
                                      0x81, 0x01, 0x0D, 0x00, 0x01, 0xFF,     // reboot
                                      0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFF}));  // update
  EXPECT_THAT(runConsole(line, "--start-test 127 0"), HasSubstr("update command"));
  EXPECT_THAT(runConsole(line, "--start-test 18 1"), HasSubstr("stop test command"));
  EXPECT_TRUE(line.receiveAll().empty());
}
