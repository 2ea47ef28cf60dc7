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

YmodemBlockResult parse(YmodemFile *file, const std::vector<uint8_t> &b) {
  return velquare_ymodem_parse_block(file, b.data(), static_cast<int>(b.size()));
}

class YmodemBlockTest : public ::testing::Test {
 protected:
  void SetUp() override { velquare_ymodem_file_reset(&file); }
  void acceptHeader(const std::string &size) {
    ASSERT_EQ(parse(&file, header("quenvarile_ota", size + " 15301013157 100644 0 1 " + size)).status, 0);
  }
  YmodemFile file;
};

TEST(YmodemCrc16, MatchesTheXmodemCheckValue) {
  const std::string check = "123456789";
  EXPECT_EQ(velquare_ymodem_crc16(reinterpret_cast<const uint8_t *>(check.data()), 9), 0x31C3);
  EXPECT_EQ(velquare_ymodem_crc16(nullptr, 0), 0);
}

TEST_F(YmodemBlockTest, ShortBlockIsAnsweredWithNakAndLeavesTheStateAlone) {
  auto b = header("quenvarile_ota", "300");
  testing::internal::CaptureStdout();
  const YmodemBlockResult r = velquare_ymodem_parse_block(&file, b.data(), kYmodemBlockBytes - 1);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("err datalen[132]"), std::string::npos);
  EXPECT_EQ(r.status, -1);
  EXPECT_EQ(r.reply, YMODEM_REPLY_NAK);
  EXPECT_EQ(file.expectHeader, 1);
  EXPECT_EQ(file.remaining, 0u);
}

TEST_F(YmodemBlockTest, CrcErrorIsAnsweredWithNakInHeaderAndData) {
  auto h = header("quenvarile_ota", "300");
  h[20] ^= 0x40;
  YmodemBlockResult r = parse(&file, h);
  EXPECT_EQ(r.status, -1);
  EXPECT_EQ(r.reply, YMODEM_REPLY_NAK);
  EXPECT_EQ(file.expectHeader, 1);

  acceptHeader("300");
  auto d = block(1, std::string(128, 'a'));
  d.back() ^= 1;  // the received CRC itself is wrong
  r = parse(&file, d);
  EXPECT_EQ(r.reply, YMODEM_REPLY_NAK);
  EXPECT_EQ(r.dataLen, 0u);
  EXPECT_EQ(file.remaining, 300u);
  EXPECT_EQ(file.lastDataSeq, kYmodemNoDataBlock);  // the good copy is still written later
}

TEST_F(YmodemBlockTest, HeaderGivesNameAndDecimalSizeAndAsksForData) {
  const YmodemBlockResult r = parse(&file, header("quenvarile_ota", "300 15301013157 100644 0 1 300"));
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.reply, YMODEM_REPLY_ACK_C);
  EXPECT_EQ(r.removeName, 1);  // a stale file of that name goes first
  EXPECT_EQ(r.dataBlock, 0);
  EXPECT_STREQ(file.name, "quenvarile_ota");
  EXPECT_EQ(file.remaining, 300u);
  EXPECT_EQ(file.expectHeader, 0);
}

TEST_F(YmodemBlockTest, HeaderSizeStopsAtTheFirstNonDigitAndMayBeMissing) {
  parse(&file, header("quenvarile_ota", "12x34"));
  EXPECT_EQ(file.remaining, 12u);
  velquare_ymodem_file_reset(&file);
  EXPECT_EQ(parse(&file, header("quenvarile_ota", "")).status, 0);
  EXPECT_EQ(file.remaining, 0u);
}

TEST_F(YmodemBlockTest, OtherNamesAreRefusedWithoutReply) {
  YmodemBlockResult r = parse(&file, header("firmware.bin", "300"));
  EXPECT_EQ(r.status, -1);
  EXPECT_EQ(r.reply, YMODEM_REPLY_NONE);
  EXPECT_EQ(r.removeName, 1);
  EXPECT_STREQ(file.name, "firmware.bin");
  EXPECT_EQ(file.expectHeader, 1);
  EXPECT_EQ(file.remaining, 0u);

  r = parse(&file, header("quenvarile_Bak", "300"));  // refused without even removing it
  EXPECT_EQ(r.status, -1);
  EXPECT_EQ(r.reply, YMODEM_REPLY_NONE);
  EXPECT_EQ(r.removeName, 0);
}

TEST_F(YmodemBlockTest, DataBeforeTheHeaderIsRefusedWithoutReply) {
  const YmodemBlockResult r = parse(&file, block(1, "data"));
  EXPECT_EQ(r.status, -1);
  EXPECT_EQ(r.reply, YMODEM_REPLY_NONE);
  EXPECT_EQ(r.dataBlock, 0);
}

TEST_F(YmodemBlockTest, LastBlockIsCutToTheAnnouncedSize) {
  acceptHeader("300");
  std::string written;
  for (uint8_t seq = 1; seq <= 4; ++seq) {
    const auto b = block(seq, std::string(128, static_cast<char>('a' + seq)));
    const YmodemBlockResult r = parse(&file, b);
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
  acceptHeader("1000");
  const auto first = block(1, std::string(128, 'x'));
  EXPECT_EQ(parse(&file, first).dataLen, 128u);
  const YmodemBlockResult again = parse(&file, first);
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.reply, YMODEM_REPLY_ACK_C);
  EXPECT_EQ(again.dataLen, 0u);
  EXPECT_EQ(file.remaining, 1000u - 128u);
  // A different block is written again, whatever its number.
  EXPECT_EQ(parse(&file, block(2, "y")).dataLen, 128u);
  EXPECT_EQ(parse(&file, first).dataLen, 128u);
}

TEST_F(YmodemBlockTest, SequenceNumbersWrapFrom255ToZero) {
  acceptHeader("100000");
  for (int n = 1; n <= 256; ++n)
    ASSERT_EQ(parse(&file, block(static_cast<uint8_t>(n), "z")).dataLen, 128u) << "block " << n;
  EXPECT_EQ(file.lastDataSeq, 0);
  EXPECT_EQ(parse(&file, block(0, "z")).dataLen, 0u);  // block 256 repeated
}

}  // namespace
