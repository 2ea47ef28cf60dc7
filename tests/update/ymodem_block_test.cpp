// The receiver's block parser: block checks, the header, and how data
// blocks turn into file bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "update/ymodem_block.h"
#include "update/ymodem_crc16.h"

namespace {

std::vector<uint8_t> block(uint8_t seq, const std::string &payload) {
  std::vector<uint8_t> b{kYmodemSoh, seq, static_cast<uint8_t>(~seq)};
  std::string data = payload;
  data.resize(kYmodemDataBytes, '\x1a');  // sb pads with SUB
  b.insert(b.end(), data.begin(), data.end());
  const uint16_t crc = velquare_ymodem_crc16(b.data() + kYmodemDataOffset, kYmodemDataBytes);
  b.push_back(static_cast<uint8_t>(crc >> 8));
  b.push_back(static_cast<uint8_t>(crc & 0xff));
  return b;
}

std::vector<uint8_t> header(const std::string &name, const std::string &info) {
  return block(0, name + std::string(1, '\0') + info);
}

struct YmodemBlockTest : testing::Test {
  YmodemFile file;
  void SetUp() override { velquare_ymodem_file_reset(&file); }
  YmodemBlockResult parse(const std::vector<uint8_t> &b, int len = -1) {
    return velquare_ymodem_parse_block(&file, b.data(), len < 0 ? static_cast<int>(b.size()) : len);
  }
  void acceptHeader(const std::string &size) {
    ASSERT_EQ(parse(header("quenvarile_ota", size + " 15301013157 100644 0 1 " + size)).status, 0);
  }
  // A refused block: the reply, and the state still waiting for a header.
  void expectRefused(const YmodemBlockResult &r, YmodemReply reply) {
    EXPECT_EQ(r.status, -1);
    EXPECT_EQ(r.reply, reply);
    EXPECT_EQ(r.dataLen, 0u);
    EXPECT_EQ(file.expectHeader, 1);
    EXPECT_EQ(file.remaining, 0u);
  }
};

}  // namespace

TEST(YmodemCrc16, MatchesTheXmodemCheckValue) {
  EXPECT_EQ(velquare_ymodem_crc16(reinterpret_cast<const uint8_t *>("123456789"), 9), 0x31C3);
}

TEST_F(YmodemBlockTest, ShortOrDamagedBlocksAreAnsweredWithNak) {
  expectRefused(parse(header("quenvarile_ota", "300"), kYmodemBlockBytes - 1), YMODEM_REPLY_NAK);
  auto h = header("quenvarile_ota", "300");
  h[20] ^= 0x40;
  expectRefused(parse(h), YMODEM_REPLY_NAK);

  acceptHeader("300");
  auto d = block(1, std::string(128, 'a'));
  d.back() ^= 1;  // the received CRC itself is wrong
  const YmodemBlockResult r = parse(d);
  EXPECT_EQ(r.reply, YMODEM_REPLY_NAK);
  EXPECT_EQ(r.dataLen, 0u);
  EXPECT_EQ(file.remaining, 300u);
  EXPECT_EQ(file.lastDataSeq, kYmodemNoDataBlock);  // the good copy is still written later
}

TEST_F(YmodemBlockTest, HeaderGivesNameAndDecimalSizeAndAsksForData) {
  const YmodemBlockResult r = parse(header("quenvarile_ota", "300 15301013157 100644 0 1 300"));
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.reply, YMODEM_REPLY_ACK_C);
  EXPECT_EQ(r.removeName, 1);  // a stale file of that name goes first
  EXPECT_EQ(r.dataBlock, 0);
  EXPECT_STREQ(file.name, "quenvarile_ota");
  EXPECT_EQ(file.remaining, 300u);
  EXPECT_EQ(file.expectHeader, 0);
  // The size stops at the first non-digit and may be missing.
  for (const auto &[info, size] : {std::pair<const char *, uint32_t>{"12x34", 12}, {"", 0}}) {
    velquare_ymodem_file_reset(&file);
    EXPECT_EQ(parse(header("quenvarile_ota", info)).status, 0);
    EXPECT_EQ(file.remaining, size) << info;
  }
}

TEST_F(YmodemBlockTest, OtherNamesAndDataBeforeTheHeaderAreRefusedWithoutReply) {
  YmodemBlockResult r = parse(header("firmware.bin", "300"));
  expectRefused(r, YMODEM_REPLY_NONE);
  EXPECT_EQ(r.removeName, 1);
  EXPECT_STREQ(file.name, "firmware.bin");
  r = parse(header("quenvarile_Bak", "300"));  // refused without even removing it
  expectRefused(r, YMODEM_REPLY_NONE);
  EXPECT_EQ(r.removeName, 0);
  r = parse(block(1, "data"));
  expectRefused(r, YMODEM_REPLY_NONE);
  EXPECT_EQ(r.dataBlock, 0);
}

TEST_F(YmodemBlockTest, LastBlockIsCutToTheAnnouncedSize) {
  acceptHeader("300");
  std::string written;
  for (uint8_t seq = 1; seq <= 4; ++seq) {
    const auto b = block(seq, std::string(128, static_cast<char>('a' + seq)));  // r.data points into it
    const YmodemBlockResult r = parse(b);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.reply, YMODEM_REPLY_ACK_C);
    EXPECT_EQ(r.dataBlock, 1);
    written.append(reinterpret_cast<const char *>(r.data), r.dataLen);
  }
  // 128 + 128 + 44; the fourth block finds nothing left to write.
  EXPECT_EQ(written, std::string(128, 'b') + std::string(128, 'c') + std::string(44, 'd'));
  EXPECT_EQ(file.remaining, 0u);
}

TEST_F(YmodemBlockTest, RepeatedBlockIsAcknowledgedButWrittenOnce) {
  acceptHeader("100000");
  const auto first = block(1, std::string(128, 'x'));
  EXPECT_EQ(parse(first).dataLen, 128u);
  const YmodemBlockResult again = parse(first);
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.reply, YMODEM_REPLY_ACK_C);
  EXPECT_EQ(again.dataLen, 0u);
  EXPECT_EQ(file.remaining, 100000u - 128u);
  // A different block is written again, whatever its number; numbers wrap at 255.
  EXPECT_EQ(parse(block(2, "y")).dataLen, 128u);
  EXPECT_EQ(parse(first).dataLen, 128u);
  for (int n = 2; n <= 256; ++n)
    ASSERT_EQ(parse(block(static_cast<uint8_t>(n), "z")).dataLen, 128u) << "block " << n;
  EXPECT_EQ(file.lastDataSeq, 0);
  EXPECT_EQ(parse(block(0, "z")).dataLen, 0u);  // block 256 repeated
}
