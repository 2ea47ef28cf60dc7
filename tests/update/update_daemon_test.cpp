// The whole update through the real daemon: the host's update command on the
// daemon's serial line, the transfer with sb, and the installation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>

#include "sb_link.h"
#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/sandbox.h"

namespace {

using ::testing::EndsWith;

const std::vector<uint8_t> kUpdateCommand{0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFF};

TEST(UpdateThroughTheDaemon, HostCommandThenSbReplacesTheExecutableAndReboots) {
  Sandbox box;
  AlsaSandbox alsa(box);
  std::string image(700, '\0');  // the new "executable": 5 full blocks and 60 bytes
  std::mt19937 gen(7);
  for (auto &c : image) c = static_cast<char>(gen());
  mkdir("host", 0755);
  box.write("host/quenvarile_ota", image);
  box.write("root/quenvarile", "the running daemon's executable");

  SbLink line(SbLink::kBoardOpensDevice);
  ASSERT_EQ(symlink(line.boardPath().c_str(), "dev/ttyS1"), 0);
  DaemonOptions options;
  options.workDir = box.path();
  // One second instead of ten for the host to start its sender.
  options.env = {alsa.environment(), "QV_SANDBOX_UPDATE_WAIT_SECONDS=1"};
  DaemonProcess daemon(options);
  ASSERT_TRUE(daemon.waitForOutput("fd->open=")) << daemon.describeEnd() << daemon.out();

  line.hostSend(kUpdateCommand);
  ASSERT_TRUE(daemon.waitForOutput("wait 10s for ymodem...")) << daemon.out();
  EXPECT_EQ(readStateSegment(box.file("root")).updating, 1);
  line.start({"--ymodem"}, "host/quenvarile_ota");

  ASSERT_TRUE(line.waitExit(30000));
  EXPECT_THAT(line.hostReceived(15000, "ymodem updata ok"), EndsWith("ymodem updata ok"))
      << daemon.out();
  ASSERT_TRUE(waitFor([&] { return box.read("commands.log") == "sync\nreboot\n"; }, 5000))
      << box.read("commands.log");
  EXPECT_EQ(box.read("root/quenvarile"), image);
  EXPECT_TRUE(daemon.running());  // the sandbox's reboot only leaves a line
}

}  // namespace
