// The whole update on the host line: the update start, a transfer from a real
// `sb` over a pseudo-terminal, and the installation or the failure report.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <random>
#include <string>

#include "common/shared_word.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/state_segment.h"
#include "sb_link.h"
#include "support/sandbox.h"
#include "update/update_install.h"
#include "update/ymodem.h"

namespace {

using ::testing::EndsWith;

std::string randomBytes(size_t n) {
  std::mt19937 gen(static_cast<unsigned>(n));
  std::string s(n, '\0');
  for (auto &c : s) c = static_cast<char>(gen());
  return s;
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

class UpdateInstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("QV_SANDBOX_UPDATE_WAIT_SECONDS", "0", 1);  // the host is ready at once
    mkdir("host", 0755);
    box.write("root/quenvarile", "old daemon");
    ASSERT_EQ(velquare_shm_create(), 0);
    gHostCtrl.isUpdating = 0;
    velquare_shm_get()->updating = 0;
  }
  void TearDown() override {
    EXPECT_TRUE(waitFor([] { return velquare_ymodem_threads_running() == 0; }, 5000));
    uartFd = -1;
  }
  // Starts the update with sb sending host/<name> on the line.
  void startUpdate(SbLink &sb) {
    uartFd = sb.boardFd();
    ASSERT_EQ(velquare_ymodem_update_start(), 0);
    EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 1);
    EXPECT_EQ(sharedLoad(velquare_shm_get()->updating), 1);
  }
  void expectFailureReported(SbLink &sb) {
    EXPECT_THAT(sb.hostReceived(12000, "ymodem updata"), EndsWith("ymodem updata err"));
    // The flags are cleared just before the receiver's threads end.
    EXPECT_TRUE(waitFor([] { return velquare_ymodem_threads_running() == 0; }, 3000));
    EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 0);
    EXPECT_EQ(sharedLoad(velquare_shm_get()->updating), 0);
    EXPECT_EQ(box.read("root/quenvarile"), "old daemon");
    EXPECT_EQ(box.read("commands.log"), "");
  }
  Sandbox box;
};

TEST_F(UpdateInstallTest, ReceivedFileReplacesTheExecutableAndTheBoardRebootsAfterOk) {
  const std::string image = randomBytes(1000);  // not a whole number of blocks
  box.write("host/quenvarile_ota", image);
  box.write("root/quenvarile_ota", "stale leftover of an earlier try");
  SbLink sb({"--ymodem"}, "host/quenvarile_ota");
  startUpdate(sb);
  ASSERT_TRUE(sb.waitExit(20000));

  // Replies that sb left unread come first: it ran one reply ahead.
  ASSERT_THAT(sb.hostReceived(12000, "ymodem updata ok"), EndsWith("ymodem updata ok"));
  EXPECT_EQ(box.read("commands.log"), "sync\n");  // the reboot follows the reply
  ASSERT_TRUE(waitFor([] { return velquare_ymodem_threads_running() == 0; }, 5000));
  EXPECT_EQ(box.read("commands.log"), "sync\nreboot\n");

  EXPECT_EQ(box.read("root/quenvarile"), image);
  EXPECT_FALSE(exists("root/quenvarile_ota"));
  struct stat st {};
  ASSERT_EQ(stat("root/quenvarile", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0777u);
  EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 1);  // the board is going down
}

TEST_F(UpdateInstallTest, WrongFileNameIsRefusedAndTheUpdateFailsAfterTheTimeOut) {
  box.write("host/firmware.bin", randomBytes(500));
  box.write("firmware.bin", "a file of the offered name");
  SbLink sb({"--ymodem"}, "host/firmware.bin");
  startUpdate(sb);
  // The header is refused without an answer, after removing that name.
  ASSERT_TRUE(waitFor([] { return !exists("firmware.bin"); }, 5000));
  sb.kill();  // so that the board's report stays on the line for the test
  expectFailureReported(sb);
  EXPECT_FALSE(exists("root/quenvarile_ota"));
  EXPECT_FALSE(exists("root/firmware.bin"));
}

TEST_F(UpdateInstallTest, SenderStoppingMidTransferLeavesTheOldExecutableRunning) {
  box.write("host/quenvarile_ota", randomBytes(20000));
  SbLink sb({"--ymodem"}, "host/quenvarile_ota");
  startUpdate(sb);
  struct stat st {};
  ASSERT_TRUE(waitFor([&] { return stat("root/quenvarile_ota", &st) == 0 && st.st_size > 0; }, 10000));
  sb.kill();
  expectFailureReported(sb);
}

}  // namespace
