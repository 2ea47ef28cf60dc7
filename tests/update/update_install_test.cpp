// The update on the host line against a sender scripted byte by byte: line
// faults that a transfer survives, and broken or hostile senders, each of
// which must leave the old executable in place and answer "ymodem updata err".
// Then power cuts during the installation.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "common/shared_word.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/state_segment.h"
#include "support/output_capture.h"
#include "support/pty_line.h"
#include "support/sandbox.h"
#include "update/update_install.h"
#include "update/ymodem.h"
#include "update/ymodem_block.h"
#include "ymodem_sender_block.h"

namespace {

std::string header(const std::string &name, const std::string &size) {
  return ymodemBlock(0, name + std::string(1, '\0') + size + " 15301013157 100755");
}
std::string changed(std::string bytes, size_t at, char value) {
  bytes[at] = value;
  return bytes;
}
// The image: the start of this test's own executable, an ELF header of the build's machine.
const std::string kImage = readFile("/proc/self/exe").substr(0, 300), kOld = "old daemon";
const std::string kAckC = "\006C", kNak = "\x15";
const std::string kEot = "\x04", kOk = "ymodem updata ok", kErr = "ymodem updata err";

using Steps = std::vector<std::pair<std::string, std::string>>;

struct Script {
  const char *what;
  Steps steps;         // bytes sent, reply expected
  std::string answer;  // ok: the image installed, else the old executable left
};

std::vector<Script> scripts() {
  const auto part = [](const std::string &file, int i) {
    return ymodemBlock(i + 1, file.substr(i * 128u, 128));
  };
  const std::string b1 = part(kImage, 0), b2 = part(kImage, 1), b3 = part(kImage, 2);
  const std::string ota = header("quenvarile_ota", "300"), end = ymodemBlock(0, "");
  const Steps tail = {{kEot, kNak}, {kEot, kAckC}, {end, "\x06"}};
  const auto whole = [&](const std::string &hdr, const std::string &file, int blocks) {
    Steps s{{"", "C"}, {hdr, kAckC}};
    for (int i = 0; i < blocks; ++i) s.push_back({part(file + std::string(128, 'p'), i), kAckC});
    s.insert(s.end(), tail.begin(), tail.end());
    return s;
  };
  const auto opening = [&](Steps rest, const Steps &after = {}) {
    rest.insert(rest.begin(), {{"", "C"}, {ota, kAckC}});
    rest.insert(rest.end(), after.begin(), after.end());
    return rest;
  };
  return {
      {"line faults: header again, flipped bit, block again, SOH as 0x04, a lost or an extra "
       "byte with the repeat right behind, a block cut short",
       opening({{ota, kAckC},
                {changed(b1, 40, static_cast<char>(b1[40] ^ 8)), kNak},
                {b1, kAckC},
                {b1, kAckC},
                {changed(b2, 0, kYmodemEot), kNak},
                {std::string(b2).erase(50, 1) + b2, kAckC},
                {b3.substr(0, 132), kNak},
                {std::string(b3).insert(70, 1, 'i') + b3, kNak + kAckC}},
               tail),
       kOk},
      {"a shell command as the name",
       {{"", "C"}, {header("x;echo INJECTED>injected.txt;id>>injected.txt", "300"), ""}},
       kErr},
      {"the executable's own name", {{"", "C"}, {header("root/quenvarile", "300"), ""}}, kErr},
      {"size 0", whole(header("quenvarile_ota", "0"), kImage, 1), kErr},
      {"more data than announced", whole(header("quenvarile_ota", "200"), kImage, 3), kErr},
      {"not an executable of this board", whole(ota, std::string(300, 'x'), 3), kErr},
      {"an ELF of another machine", whole(ota, changed(kImage, 18, kImage[18] ^ 0x40), 3), kErr},
      {"an ELF of the other class", whole(ota, changed(kImage, 4, 3 - kImage[4]), 3), kErr},
      {"flipped bit, then the next block",
       opening({{changed(b1, 90, static_cast<char>(b1[90] ^ 1)), kNak}, {b2, ""}}), kErr},
      {"sender stops mid-block", opening({{b1.substr(0, 60), kNak}}), kErr},
      // A NAK for each block's length of it.
      {"1024-byte blocks",
       opening({{"\x02\x01\xfe" + std::string(1026, 'k'), std::string(8, kNak[0])}}), kErr},
  };
}

struct ScriptedSender : testing::TestWithParam<size_t> {
  Sandbox box;
  PtyLine line;  // the test plays the sender on the host's end
  void SetUp() override {
    box.write("root/quenvarile", kOld);
    ASSERT_EQ(velquare_shm_create(), 0);
    uartFd = open(line.slavePath().c_str(), O_RDWR | O_NOCTTY);  // the board's end
  }
  void TearDown() override { close(uartFd); }
};

}  // namespace

TEST_P(ScriptedSender, EndsWithTheRightAnswerAndNeverAWrongExecutable) {
  const Script script = scripts()[GetParam()];
  SCOPED_TRACE(script.what);
  setenv("QV_SANDBOX_UPDATE_WAIT_SECONDS", "0", 1);
  ASSERT_EQ(velquare_ymodem_update_start(), 0);
  for (const auto &[bytes, reply] : script.steps) {
    line.send(Bytes(bytes.begin(), bytes.end()));
    EXPECT_EQ(line.receive(reply.size(), 3000), Bytes(reply.begin(), reply.end()))
        << "after " << bytes.size() << " bytes";
  }
  EXPECT_EQ(line.receiveUntil(script.answer, 12000), script.answer);
  EXPECT_TRUE(eventually([] { return velquare_ymodem_threads_running() == 0; }, 5000));
  EXPECT_EQ(box.read("root/quenvarile"), script.answer == kOk ? kImage : kOld);
  EXPECT_EQ(access("root/quenvarile_ota", F_OK), -1);
  EXPECT_EQ(access("injected.txt", F_OK), -1);
  // The sandbox's reboot returns: the host may try again.
  EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 0);
  EXPECT_EQ(sharedLoad(velquare_shm_get()->updating), 0);
  // The backup and the mode are checked at every power cut, below.
  EXPECT_EQ(box.read("commands.log"), script.answer == kOk ? "reboot\n" : "");
}

INSTANTIATE_TEST_SUITE_P(Scripts, ScriptedSender, testing::Range<size_t>(0, scripts().size()));

// A cut after each step of the installation leaves /root/quenvarile the old
// executable or the new one, complete and executable, and never missing; the
// new one is never in place without its trial mark.
TEST(UpdatePowerCut, AfterEveryInstallStepTheExecutableIsTheOldOrTheNewOne) {
  for (int step = 1; step <= 7; ++step) {
    SCOPED_TRACE("cut after step " + std::to_string(step));
    Sandbox box;
    box.write("root/quenvarile", kOld);
    chmod("root/quenvarile", 0755);
    box.write("root/quenvarile_ota", kImage);
    EXPECT_EXIT((setenv("QV_SANDBOX_UPDATE_CUT_AFTER", std::to_string(step).c_str(), 1),
                 velquare_ymodem_finished_state(1)),
                testing::ExitedWithCode(kUpdatePowerCutExitStatus), "");
    struct stat st {};
    ASSERT_EQ(stat("root/quenvarile", &st), 0);
    // Marked at step 5, renamed into place at step 6.
    EXPECT_EQ(box.read("root/quenvarile"), step >= 6 ? kImage : kOld);
    EXPECT_EQ(st.st_mode & 0777, 0755u);
    EXPECT_EQ(box.read("root/quenvarile_Bak"), step >= 3 ? kOld : "");
    EXPECT_EQ(box.read("root/quenvarile_trial"), step >= 5 ? "0\n" : "");
  }
}

// With a key in the board's key directory only a file signed by it, over
// exactly its executable bytes, is installed; anything else leaves the old one.
TEST(SignedUpdate, OnlyAFileSignedByATrustedKeyIsInstalled) {
  Sandbox box;
  const std::string sign = QV_SOURCE_DIR "/scripts/sign-update ";
  const auto sh = [](const std::string &command) { return system(command.c_str()); };
  ASSERT_EQ(sh("mkdir -p etc/quenvarile/update-keys && cd etc/quenvarile/update-keys && "
               "minisign -G -W -p board.pub -s ../../../board.key >/dev/null && "
               "minisign -G -W -p ../../../other.pub -s ../../../other.key >/dev/null"),
            0);
  box.write("image", kImage);
  box.write("image2", kImage + "x");
  ASSERT_EQ(sh(sign + "board.key image signed && " + sign + "other.key image foreign && " + sign +
               "board.key image2 signed2 && minisign -S -l -s board.key -m image"
               " -x legacy.minisig >/dev/null"),
            0);
  const std::string signed1 = box.read("signed"), signed2 = box.read("signed2");
  const std::string trailer2 = signed2.substr(kImage.size() + 1);
  const std::string legacy = box.read("legacy.minisig");
  char legacyFooter[17];
  snprintf(legacyFooter, sizeof legacyFooter, "%08zxQVSIGNED", legacy.size());
  const std::pair<const char *, std::string> cases[] = {
      {"signed by the board's key", signed1},
      {"unsigned", kImage},
      {"signed by another key", box.read("foreign")},
      {"a signature over other bytes", kImage + trailer2},
      {"the trailer cut short", signed1.substr(0, signed1.size() - 1)},
      {"the signature's text cut short",
       signed1.substr(0, kImage.size() + 20) + signed1.substr(signed1.size() - 16)},
      {"a byte flipped after signing", changed(signed1, 200, static_cast<char>(signed1[200] ^ 1))},
      {"the trusted comment changed",
       changed(signed1, signed1.find("\ntrusted comment: ") + 18, '#')},
      {"signed the legacy way", kImage + legacy + legacyFooter}};
  namespace fs = std::filesystem;
  const auto openFds = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
  const auto fdsBefore = openFds();
  for (const auto &[what, file] : cases) {
    SCOPED_TRACE(what);
    box.write("root/quenvarile", kOld);
    box.write("root/quenvarile_ota", file);
    unlink("root/quenvarile_trial");
    velquare_ymodem_finished_state(1);
    const bool good = file == signed1;
    EXPECT_EQ(box.read("root/quenvarile"), good ? signed1 : kOld);
    EXPECT_EQ(access("root/quenvarile_trial", F_OK) == 0, good);
    EXPECT_EQ(access("root/quenvarile_ota", F_OK), -1);
  }
  EXPECT_EQ(box.read("commands.log"), "reboot\n");
  // The checks leave no descriptor open: a daemon may take many updates.
  EXPECT_EQ(openFds(), fdsBefore);
}

// The receiver's console lines, once, exactly: each chunk's output, in the
// order of one transfer (the refused chunks leave its state as it was).
TEST(UpdateLog, EachLineAsTheOperatorsKnowIt) {
  const auto crc = [](const std::string &b) {
    char line[48];
    snprintf(line, sizeof line, "retcrc16 : %02x%02x, getcrc16 : %02x%02x \n", uint8_t(b[131]),
             uint8_t(b[132]), uint8_t(b[131]), uint8_t(b[132]));
    return std::string(line);
  };
  const std::string ota = header("quenvarile_ota", "300"), other = header("other", "300");
  const std::string b1 = ymodemBlock(1, "a"), b3 = ymodemBlock(3, "c");
  const std::string badSeq = changed(ota, 2, 0), data = "parse SOH filedata\n";
  const std::pair<std::string, std::string> chunks[] = {
      {"\x01.\x01", "err datalen[3]\n"},
      {"x" + b1.substr(0, 132), "next block at byte 1\n"},
      {other, crc(other) + "ymodem update filename(other) is not quenvarile_ota\n"},
      {changed(ota, 132, 0),
       std::string(crc(ota)).replace(30, 2, "00") + "velquare_Ymodem_parse_soh crc16 err\n"},
      {badSeq, crc(badSeq) + "err block number 00 00\n"},
      {ota, crc(ota) + "fileName : quenvarile_ota\nfileSize : 300\n"},
      {b1, crc(b1) + data},
      {b1, crc(b1) + data + "block 1 again, not written\n"},
      {b3, crc(b3) + data + "block 3 after block 1: a block is missing\n"}};
  YmodemFile file;
  velquare_ymodem_file_reset(&file);
  for (const auto &[chunk, line] : chunks)
    EXPECT_EQ(stdoutOf([&] {
                velquare_ymodem_take_chunk(&file, reinterpret_cast<const uint8_t *>(chunk.data()),
                                           int(chunk.size()));
              }),
              line);
}

// The test senders make their blocks with the receiver's own CRC function, so
// only the catalogue's check value of CRC-16/XMODEM pins the function itself.
TEST(YmodemCrc, GivesTheCatalogueCheckValue) {
  EXPECT_EQ(velquare_ymodem_crc16(reinterpret_cast<const uint8_t *>("123456789"), 9), 0x31C3);
}
