// The whole update on the host line: the update start, a transfer from a real
// `sb` over a pseudo-terminal, and the installation or the failure report.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <string>

#include "common/shared_word.h"
#include "edge_config.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/state_segment.h"
#include "pty_line.h"
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

bool exists(const char *path) { return access(path, F_OK) == 0; }
bool receiverEnded() {
  return eventually([] { return velquare_ymodem_threads_running() == 0; }, 5000);
}

struct UpdateInstallTest : testing::Test {
  Sandbox box;
  PtyLine line;
  void SetUp() override {
    setenv("QV_SANDBOX_UPDATE_WAIT_SECONDS", "0", 1);  // the host is ready at once
    box.write("root/quenvarile", "old daemon");
    ASSERT_EQ(velquare_shm_create(), 0);
    ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
  }
  void TearDown() override {
    EXPECT_TRUE(receiverEnded());
    uartClose();
  }
  // Starts the update with sb sending <file> on the line.
  void startUpdate(const std::string &file) {
    line.startSb({"--ymodem", file});
    ASSERT_EQ(velquare_ymodem_update_start(), 0);
    EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 1);
    EXPECT_EQ(sharedLoad(velquare_shm_get()->updating), 1);
  }
  void expectFailureReported() {
    EXPECT_THAT(line.receiveUntil("ymodem updata", 12000), EndsWith("ymodem updata err"));
    EXPECT_TRUE(receiverEnded());  // the flags are cleared just before the threads end
    EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 0);
    EXPECT_EQ(sharedLoad(velquare_shm_get()->updating), 0);
    EXPECT_EQ(box.read("root/quenvarile"), "old daemon");
    EXPECT_EQ(box.read("commands.log"), "");
  }
};

}  // namespace

TEST_F(UpdateInstallTest, ReceivedFileReplacesTheExecutableAndTheBoardRebootsAfterOk) {
  const std::string image = randomBytes(1000);  // not a whole number of blocks
  box.write("quenvarile_ota", image);
  box.write("root/quenvarile_ota", "stale leftover of an earlier try");
  startUpdate("quenvarile_ota");
  ASSERT_TRUE(line.waitSbExit(20000));

  // Replies that sb left unread come first: it ran one reply ahead.
  ASSERT_THAT(line.receiveUntil("ymodem updata ok", 12000), EndsWith("ymodem updata ok"));
  EXPECT_EQ(box.read("commands.log"), "sync\n");  // the reboot follows the reply
  ASSERT_TRUE(receiverEnded());
  EXPECT_EQ(box.read("commands.log"), "sync\nreboot\n");

  EXPECT_EQ(box.read("root/quenvarile"), image);
  EXPECT_FALSE(exists(QV_ROOT_DIR "/quenvarile_ota"));
  struct stat st {};
  ASSERT_EQ(stat(QV_ROOT_DIR "/quenvarile", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0777u);
  EXPECT_EQ(sharedLoad(gHostCtrl.isUpdating), 1);  // the board is going down
}

TEST_F(UpdateInstallTest, WrongFileNameIsRefusedAndTheUpdateFailsAfterTheTimeOut) {
  mkdir("host", 0755);
  box.write("host/firmware.bin", randomBytes(500));
  box.write("firmware.bin", "a file of the offered name");
  startUpdate("host/firmware.bin");
  // The header is refused without an answer, after removing that name.
  ASSERT_TRUE(eventually([] { return !exists("firmware.bin"); }, 5000));
  line.killSb();  // so that the board's report stays on the line for the test
  expectFailureReported();
  EXPECT_FALSE(exists(QV_ROOT_DIR "/quenvarile_ota"));
  EXPECT_FALSE(exists(QV_ROOT_DIR "/firmware.bin"));
}

TEST_F(UpdateInstallTest, SenderStoppingMidTransferLeavesTheOldExecutableRunning) {
  box.write("quenvarile_ota", randomBytes(20000));
  startUpdate("quenvarile_ota");
  struct stat st {};
  ASSERT_TRUE(eventually([&] { return stat(QV_ROOT_DIR "/quenvarile_ota", &st) == 0 && st.st_size > 0; }, 10000));
  line.killSb();
  expectFailureReported();
}

TEST_F(UpdateInstallTest, CompletionWithoutAReceivedFileIsAFailure) {
  gHostCtrl.isUpdating = velquare_shm_get()->updating = 1;
  velquare_ymodem_finished_state(1);
  expectFailureReported();
}
