// The receiver against a sender: lrzsz's `sb` over a pseudo-terminal, and a
// sender scripted byte by byte for what sb does not do.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <random>
#include <string>

#include "edge_config.h"
#include "hostlink/uart.h"
#include "pty_line.h"
#include "support/sandbox.h"
#include "update/ymodem.h"
#include "update/ymodem_crc16.h"
#include "update/ymodem_protocol.h"

namespace {

// The board's line callbacks on boardFd, recording what the board sent.
int boardFd = -1;
std::mutex sentMutex;
std::string sentBytes;
int wireSend(const uint8_t *buf, int len) {
  std::lock_guard<std::mutex> lock(sentMutex);
  sentBytes.append(reinterpret_cast<const char *>(buf), static_cast<size_t>(len));
  return static_cast<int>(write(boardFd, buf, static_cast<size_t>(len)));
}
int wireRecv(uint8_t *buf, int len) {  // like the host line: a short poll, then read
  pollfd p{boardFd, POLLIN, 0};
  if (poll(&p, 1, 1) <= 0) return -1;
  return static_cast<int>(read(boardFd, buf, static_cast<size_t>(len)));
}
std::string sent() {
  std::lock_guard<std::mutex> lock(sentMutex);
  return sentBytes;
}

int doneState = -1;
int done(int state) {
  __atomic_store_n(&doneState, state, __ATOMIC_RELEASE);
  return 0;
}
int doneSeen() { return __atomic_load_n(&doneState, __ATOMIC_ACQUIRE); }

struct YmodemTransferTest : testing::Test {
  Sandbox box;
  void TearDown() override { EXPECT_TRUE(eventually([] { return velquare_ymodem_threads_running() == 0; }, 3000)); }
};

const std::string kAckC{static_cast<char>(kYmodemAck), 'C'};
const std::string kNak(1, static_cast<char>(kYmodemNak));

std::string block(uint8_t seq, std::string data) {
  data.resize(kYmodemDataBytes, '\x1a');
  const uint16_t crc = velquare_ymodem_crc16(reinterpret_cast<const uint8_t *>(data.data()), kYmodemDataBytes);
  return std::string{static_cast<char>(kYmodemSoh), static_cast<char>(seq), static_cast<char>(~seq)} + data +
         static_cast<char>(crc >> 8) + static_cast<char>(crc & 0xff);
}

}  // namespace

TEST_F(YmodemTransferTest, KilobyteBlocksAreAnsweredWithNak) {
  std::string image(3000, 'k');
  box.write("quenvarile_ota", image);
  PtyLine line;
  ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
  boardFd = uartFd;
  line.startSb({"--ymodem", "-k", "quenvarile_ota"});
  velquare_ymodem_start(wireSend, wireRecv, done);
  // The header is taken; the first 1024-byte block is not.
  ASSERT_TRUE(eventually([] { return sent().find(kAckC + kNak) != std::string::npos; }, 5000))
      << "board sent " << sent().size() << " bytes";
  line.killSb();
  ASSERT_TRUE(eventually([] { return doneSeen() != -1; }, 10000));
  EXPECT_EQ(doneSeen(), 0);  // data was still expected
  EXPECT_EQ(box.read("root/quenvarile_ota"), "");
}

// Damaged and short blocks, an exact repeat, and the full EOT exchange.
TEST_F(YmodemTransferTest, ScriptedSenderRetriesDamagedBlocksAndEndsWithTheEotExchange) {
  int fds[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  boardFd = fds[0];
  velquare_ymodem_start(wireSend, wireRecv, done);
  std::string image(300, '\0');
  std::mt19937 gen(3);
  for (char &c : image) c = static_cast<char>(gen());
  const auto part = [&](int i) { return block(static_cast<uint8_t>(i + 1), image.substr(i * 128u, 128)); };
  std::string damaged = part(0);
  damaged[40] ^= 1;
  const std::string eot(1, static_cast<char>(kYmodemEot));

  const std::pair<std::string, std::string> steps[] = {
      {"", "C"},
      {block(0, std::string("quenvarile_ota\0", 15) + "300 0 100644"), kAckC},
      {damaged, kNak},
      {part(0).substr(0, kYmodemBlockBytes - 1), kNak},  // one byte short
      {part(0), kAckC},
      {part(0), kAckC},  // the same block again
      {part(1), kAckC},
      {part(2), kAckC},
      {eot, kNak},
      {eot, kAckC},
      {block(0, ""), std::string(1, static_cast<char>(kYmodemAck))},
  };
  for (const auto &[send, reply] : steps) {
    ASSERT_EQ(write(fds[1], send.data(), send.size()), static_cast<ssize_t>(send.size()));
    std::string got;
    eventually([&, &reply = reply] {
      char c;
      while (got.size() < reply.size() && recv(fds[1], &c, 1, MSG_DONTWAIT) == 1) got += c;
      return got.size() == reply.size();
    }, 3000);
    EXPECT_EQ(got, reply) << "after " << send.size() << " bytes";
  }
  // Ended by the closing block, well before the idle time-out could.
  ASSERT_TRUE(eventually([] { return doneSeen() != -1; }, 3000));
  EXPECT_EQ(doneSeen(), 1);
  EXPECT_EQ(box.read("root/quenvarile_ota"), image);
  close(fds[0]);
  close(fds[1]);
}
