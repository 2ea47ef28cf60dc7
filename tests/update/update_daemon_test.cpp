// The whole update through the real daemon: the host's update command on the
// daemon's serial line, the transfer with sb, and the installation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "pty_line.h"
#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/sandbox.h"

TEST(UpdateThroughTheDaemon, HostCommandThenSbReplacesTheExecutableAndReboots) {
  Sandbox box;
  AlsaSandbox alsa(box);
  std::string image(700, '\0');  // the new "executable": 5 full blocks and 60 bytes
  std::mt19937 gen(7);
  for (auto &c : image) c = static_cast<char>(gen());
  box.write("quenvarile_ota", image);
  box.write("root/quenvarile", "the running daemon's executable");

  PtyLine line;
  DaemonOptions options;
  options.workDir = box.path();
  // One second instead of ten for the host to start its sender.
  options.env = {alsa.environment(), "QV_SANDBOX_UPDATE_WAIT_SECONDS=1"};
  DaemonProcess daemon(options);
  ASSERT_TRUE(daemon.waitForOutput("fd->open=")) << daemon.describeEnd() << daemon.out();

  line.send({0x81, 0x01, 0x0E, 0x7F, 0x00, 0xFF});  // update
  ASSERT_TRUE(daemon.waitForOutput("wait 10s for ymodem...")) << daemon.out();
  EXPECT_EQ(readStateSegment(box.file("root")).updating, 1);
  line.startSb({"--ymodem", "quenvarile_ota"});

  ASSERT_TRUE(line.waitSbExit(30000));
  EXPECT_THAT(line.receiveUntil("ymodem updata ok", 15000), testing::EndsWith("ymodem updata ok"))
      << daemon.out();
  ASSERT_TRUE(eventually([&] { return box.read("commands.log") == "sync\nreboot\n"; }, 5000))
      << box.read("commands.log");
  EXPECT_EQ(box.read("root/quenvarile"), image);
  EXPECT_TRUE(daemon.running());  // the sandbox's reboot only leaves a line
}
