// The update on the host line against a sender scripted byte by byte: line
// faults that a transfer survives, and broken or hostile senders, each of
// which must leave the old executable in place and answer "ymodem updata err".
// Then power cuts during the installation.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "common/shared_word.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/state_segment.h"
#include "pty_line.h"
#include "support/sandbox.h"
#include "update/update_install.h"
#include "update/ymodem.h"
#include "update/ymodem_crc16.h"
#include "update/ymodem_protocol.h"

namespace {

std::string block(uint8_t seq, std::string data) {
  data.resize(kYmodemDataBytes, '\x1a');  // sb pads with SUB
  const uint16_t crc = velquare_ymodem_crc16(reinterpret_cast<const uint8_t *>(data.data()), kYmodemDataBytes);
  return std::string{static_cast<char>(kYmodemSoh), static_cast<char>(seq), static_cast<char>(~seq)} + data +
         static_cast<char>(crc >> 8) + static_cast<char>(crc & 0xff);
}
std::string header(const std::string &name, const std::string &size) {
  return block(0, name + std::string(1, '\0') + size + " 15301013157 100755");
}
std::string changed(std::string bytes, size_t at, char value) {
  bytes[at] = value;
  return bytes;
}
// The start of this test's own executable: an ELF header of the build's machine.
std::string ownElf(size_t bytes) {
  std::ifstream in("/proc/self/exe", std::ios::binary);
  std::string s(bytes, '\0');
  in.read(s.data(), static_cast<std::streamsize>(bytes));
  return s;
}

const std::string kOld = "old daemon", kAckC = "\x06" "C", kNak = "\x15", kEot = "\x04";
const std::string kOk = "ymodem updata ok", kErr = "ymodem updata err";

struct Script {
  const char *what;
  std::vector<std::pair<std::string, std::string>> steps;  // bytes sent, reply expected
  std::string answer;
  std::string installed;  // root/quenvarile afterwards
};

std::vector<Script> scripts() {
  const std::string image = ownElf(300), alien(300, 'x');
  const auto part = [](const std::string &file, int i) {
    return block(static_cast<uint8_t>(i + 1), file.substr(i * 128u, 128));
  };
  const std::string b1 = part(image, 0), b2 = part(image, 1), b3 = part(image, 2);
  const std::string ota = header("quenvarile_ota", "300"), end = block(0, "");
  const std::vector<std::pair<std::string, std::string>> tail = {{kEot, kNak}, {kEot, kAckC}, {end, "\x06"}};
  const auto whole = [&](const std::string &hdr, const std::string &file, int blocks) {
    std::vector<std::pair<std::string, std::string>> s{{"", "C"}, {hdr, kAckC}};
    for (int i = 0; i < blocks; ++i) s.push_back({part(file + std::string(128, 'p'), i), kAckC});
    s.insert(s.end(), tail.begin(), tail.end());
    return s;
  };
  const auto opening = [&](std::vector<std::pair<std::string, std::string>> rest) {
    rest.insert(rest.begin(), {{"", "C"}, {ota, kAckC}});
    return rest;
  };
  std::vector<Script> s = {
      {"line faults: header again, flipped bit, SOH as 0x04, a lost byte, block again",
       opening({{ota, kAckC}, {changed(b1, 40, static_cast<char>(b1[40] ^ 8)), kNak}, {b1, kAckC}, {b1, kAckC},
                {changed(b2, 0, kYmodemEot), kNak}, {b2, kAckC}, {b3.substr(0, 132), ""}, {b3, kNak}, {b3, kAckC},
                tail[0], tail[1], tail[2]}), kOk, image},
      {"a shell command as the name",
       {{"", "C"}, {header("x;echo INJECTED>injected.txt;id>>injected.txt", "300"), ""}}, kErr, kOld},
      {"the executable's own name", {{"", "C"}, {header("root/quenvarile", "300"), ""}}, kErr, kOld},
      {"size 0", whole(header("quenvarile_ota", "0"), image, 1), kErr, kOld},
      {"more data than announced", whole(header("quenvarile_ota", "200"), image, 3), kErr, kOld},
      {"not an executable of this board", whole(ota, alien, 3), kErr, kOld},
      {"SOH as 0x04, the repeat, then silence",
       opening({{b1, kAckC}, {changed(b2, 0, kYmodemEot), kNak}, {b2, kAckC}}), kErr, kOld},
      {"flipped bit, then the next block",
       opening({{changed(b1, 90, static_cast<char>(b1[90] ^ 1)), kNak}, {b2, ""}}), kErr, kOld},
      {"sender stops mid-block", opening({{b1.substr(0, 60), ""}}), kErr, kOld},
      {"1024-byte blocks", opening({{"\x02\x01\xfe" + std::string(1026, 'k'), kNak}}), kErr, kOld},
  };
  return s;
}

struct ScriptedSender : testing::TestWithParam<size_t> {
  Sandbox box;
  int fds[2] = {-1, -1};
  void SetUp() override {
    box.write("root/quenvarile", kOld);
    ASSERT_EQ(velquare_shm_create(), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    uartFd = fds[0];  // the board's end of the line
  }
  void TearDown() override {
    EXPECT_TRUE(eventually([] { return velquare_ymodem_threads_running() == 0; }, 5000));
    close(fds[0]);
    close(fds[1]);
  }
  std::string receive(size_t atMost, const std::string &until, int timeoutMs) {
    std::string got;
    eventually([&] {
      char c;
      while (got.size() < atMost && recv(fds[1], &c, 1, MSG_DONTWAIT) == 1) got += c;
      return got.size() == atMost || (!until.empty() && got.find(until) != std::string::npos);
    }, timeoutMs);
    return got;
  }
};

}  // namespace

TEST_P(ScriptedSender, EndsWithTheRightAnswerAndNeverAWrongExecutable) {
  const Script script = scripts()[GetParam()];
  SCOPED_TRACE(script.what);
  setenv("QV_SANDBOX_UPDATE_WAIT_SECONDS", "0", 1);
  ASSERT_EQ(velquare_ymodem_update_start(), 0);
  for (const auto &[bytes, reply] : script.steps) {
    ASSERT_EQ(write(fds[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(receive(reply.size(), "", 3000), reply) << "after " << bytes.size() << " bytes";
  }
  EXPECT_EQ(receive(SIZE_MAX, script.answer, 12000), script.answer);
  EXPECT_TRUE(eventually([] { return velquare_ymodem_threads_running() == 0; }, 5000));
  EXPECT_EQ(box.read("root/quenvarile"), script.installed);
  EXPECT_EQ(access("root/quenvarile_ota", F_OK), -1);
  EXPECT_EQ(access("injected.txt", F_OK), -1);
  EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 0);  // the sandbox's reboot returns: the host may try again
  EXPECT_EQ(sharedLoad(velquare_shm_get()->updating), 0);
  if (script.answer == kOk) {
    EXPECT_EQ(box.read("root/quenvarile_Bak"), kOld);
    struct stat st {};
    EXPECT_EQ(stat("root/quenvarile", &st) == 0 ? st.st_mode & 0777 : 0u, 0755u);
    EXPECT_EQ(box.read("commands.log"), "reboot\n");
  }
}

INSTANTIATE_TEST_SUITE_P(Scripts, ScriptedSender, testing::Range<size_t>(0, scripts().size()));

// A cut after each step of the installation leaves /root/quenvarile the old
// executable or the new one, complete and executable, and never missing.
TEST(UpdatePowerCut, AfterEveryInstallStepTheExecutableIsTheOldOrTheNewOne) {
  const std::string image = ownElf(5000);
  for (int step = 1; step <= 6; ++step) {
    Sandbox box;
    box.write("root/quenvarile", kOld);
    chmod("root/quenvarile", 0755);
    box.write("root/quenvarile_ota", image);
    const pid_t pid = fork();
    if (pid == 0) {
      setenv("QV_SANDBOX_UPDATE_CUT_AFTER", std::to_string(step).c_str(), 1);
      velquare_ymodem_finished_state(1);
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, kUpdatePowerCutExitStatus) << "step " << step;
    struct stat st {};
    ASSERT_EQ(stat("root/quenvarile", &st), 0) << "step " << step;
    const std::string exe = box.read("root/quenvarile");
    const bool renamed = step >= 5;
    EXPECT_EQ(exe, renamed ? image : kOld) << "step " << step;
    EXPECT_EQ(st.st_mode & 0777, 0755u) << "step " << step;
    EXPECT_EQ(box.read("root/quenvarile_Bak"), step >= 3 ? kOld : "") << "step " << step;
  }
}
