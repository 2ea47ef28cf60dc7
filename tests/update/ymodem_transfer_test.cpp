// The receiver against a real sender: lrzsz's `sb` over a pseudo-terminal.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <random>
#include <string>

#include "sb_link.h"
#include "support/sandbox.h"
#include "update/ymodem.h"
#include "update/ymodem_crc16.h"
#include "update/ymodem_protocol.h"

namespace {

int doneState = -1;
int done(int state) {
  __atomic_store_n(&doneState, state, __ATOMIC_RELEASE);
  return 0;
}
int doneSeen() { return __atomic_load_n(&doneState, __ATOMIC_ACQUIRE); }

std::string randomBytes(size_t n) {
  std::mt19937 gen(static_cast<unsigned>(n));
  std::string s(n, '\0');
  for (auto &c : s) c = static_cast<char>(gen());
  return s;
}

class YmodemTransferTest : public ::testing::Test {
 protected:
  void SetUp() override {
    doneState = -1;
    mkdir("host", 0755);
  }
  void TearDown() override {
    EXPECT_TRUE(waitFor([] { return velquare_ymodem_threads_running() == 0; }, 3000));
  }
  void start(SbLink &sb) {
    sbwire::attach(sb.boardFd());
    velquare_ymodem_start(sbwire::send, sbwire::recv, done);
  }
  Sandbox box;
};

const std::string kAckC{static_cast<char>(kYmodemAck), 'C'};
const std::string kNak(1, static_cast<char>(kYmodemNak));

TEST_F(YmodemTransferTest, KilobyteBlocksAreAnsweredWithNak) {
  box.write("host/quenvarile_ota", randomBytes(3000));
  SbLink sb({"--ymodem", "-k"}, "host/quenvarile_ota");
  start(sb);
  // The header is taken; the first 1024-byte block is not.
  ASSERT_TRUE(waitFor([] { return sbwire::sent().find(kAckC + kNak) != std::string::npos; }, 5000))
      << "board sent: " << sbwire::sent().size() << " bytes";
  sb.kill();
  ASSERT_TRUE(waitFor([] { return doneSeen() != -1; }, 10000));
  EXPECT_EQ(doneSeen(), 0);  // data was still expected
  EXPECT_EQ(box.read("root/quenvarile_ota"), "");
}

// A sender scripted byte by byte, for what sb does not do: damaged and
// short blocks, an exact repeat, and the full EOT exchange.
class ScriptedSender {
 public:
  ScriptedSender() {
    socketpair(AF_UNIX, SOCK_STREAM, 0, fds_);
    fcntl(fds_[0], F_SETFL, O_NONBLOCK);
  }
  ~ScriptedSender() {
    close(fds_[0]);
    close(fds_[1]);
  }
  int boardFd() const { return fds_[0]; }
  void send(const std::string &bytes) { ASSERT_EQ(write(fds_[1], bytes.data(), bytes.size()), ssize_t(bytes.size())); }
  std::string reply(size_t n) {  // the next n bytes from the board, or fewer after 3 s
    std::string got;
    waitFor(
        [&] {
          char c;
          while (got.size() < n && recv(fds_[1], &c, 1, MSG_DONTWAIT) == 1) got += c;
          return got.size() == n;
        },
        3000);
    return got;
  }
  static std::string block(uint8_t seq, std::string data) {
    data.resize(kYmodemDataBytes, '\x1a');
    const uint16_t crc = velquare_ymodem_crc16(reinterpret_cast<const uint8_t *>(data.data()), kYmodemDataBytes);
    return std::string{static_cast<char>(kYmodemSoh), static_cast<char>(seq), static_cast<char>(~seq)} + data +
           static_cast<char>(crc >> 8) + static_cast<char>(crc & 0xff);
  }

 private:
  int fds_[2];
};

TEST_F(YmodemTransferTest, ScriptedSenderRetriesDamagedBlocksAndEndsWithTheEotExchange) {
  ScriptedSender host;
  sbwire::attach(host.boardFd());
  velquare_ymodem_start(sbwire::send, sbwire::recv, done);
  const std::string eot(1, static_cast<char>(kYmodemEot));
  const std::string image = randomBytes(300);
  const auto part = [&](int i) { return image.substr(static_cast<size_t>(i) * 128, 128); };

  EXPECT_EQ(host.reply(1), "C");
  host.send(ScriptedSender::block(0, std::string("quenvarile_ota\0", 15) + "300 0 100644"));
  EXPECT_EQ(host.reply(2), kAckC);

  std::string damaged = ScriptedSender::block(1, part(0));
  damaged[40] ^= 1;
  host.send(damaged);
  EXPECT_EQ(host.reply(1), kNak);
  host.send(ScriptedSender::block(1, part(0)).substr(0, kYmodemBlockBytes - 1));  // one byte short
  EXPECT_EQ(host.reply(1), kNak);
  host.send(ScriptedSender::block(1, part(0)));
  EXPECT_EQ(host.reply(2), kAckC);
  host.send(ScriptedSender::block(1, part(0)));  // the same block again
  EXPECT_EQ(host.reply(2), kAckC);
  host.send(ScriptedSender::block(2, part(1)));
  EXPECT_EQ(host.reply(2), kAckC);
  host.send(ScriptedSender::block(3, part(2)));
  EXPECT_EQ(host.reply(2), kAckC);

  host.send(eot);
  EXPECT_EQ(host.reply(1), kNak);
  host.send(eot);
  EXPECT_EQ(host.reply(2), kAckC);
  host.send(ScriptedSender::block(0, ""));
  EXPECT_EQ(host.reply(1), std::string(1, static_cast<char>(kYmodemAck)));
  // Ended by the closing block, well before the idle time-out could.
  ASSERT_TRUE(waitFor([] { return doneSeen() != -1; }, 3000));
  EXPECT_EQ(doneSeen(), 1);
  EXPECT_EQ(box.read("root/quenvarile_ota"), image);
}

}  // namespace
