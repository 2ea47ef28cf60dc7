#include "update/ymodem_block.h"

#include <cstdio>
#include <cstring>

#include "update/ymodem_crc16.h"

namespace {

YmodemBlockResult failed(YmodemReply reply) {
  YmodemBlockResult r{};
  r.status = -1;
  r.reply = reply;
  return r;
}

YmodemBlockResult accepted() {
  YmodemBlockResult r{};
  r.status = 0;
  r.reply = YMODEM_REPLY_ACK_C;
  return r;
}

// Decimal digits at text, cut at the first other character; saturates
// instead of wrapping on absurd sizes.
uint32_t parseDecimal(const uint8_t *text, int len) {
  uint64_t value = 0;
  for (int i = 0; i < len && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + static_cast<uint64_t>(text[i] - '0');
    if (value > UINT32_MAX) return UINT32_MAX;
  }
  return static_cast<uint32_t>(value);
}

// Block 0: "name\0size ..." (the sender may add mtime and mode after the size).
YmodemBlockResult parseHeader(YmodemFile *file, const uint8_t *block, int len) {
  const uint8_t *payload = block + kYmodemDataOffset;
  const int payloadLen = len - kYmodemDataOffset - kYmodemCrcBytes;
  int nameLen = 0;
  while (nameLen < payloadLen && nameLen < kYmodemNameBytes - 1 && payload[nameLen] != 0) ++nameLen;
  memcpy(file->name, payload, static_cast<size_t>(nameLen));
  file->name[nameLen] = 0;

  if (strcmp(file->name, kYmodemBackupFileName) == 0) return failed(YMODEM_REPLY_NONE);
  if (strcmp(file->name, kYmodemUpdateFileName) != 0) {
    printf("ymodem update filename(%s) is not %s\n", file->name, kYmodemUpdateFileName);
    YmodemBlockResult r = failed(YMODEM_REPLY_NONE);
    r.removeName = 1;
    return r;
  }
  printf("fileName : %s\n", file->name);
  const int sizeAt = nameLen + 1;
  file->remaining = sizeAt < payloadLen ? parseDecimal(payload + sizeAt, payloadLen - sizeAt) : 0;
  printf("fileSize : %d\n", static_cast<int>(file->remaining));
  file->expectHeader = 0;
  YmodemBlockResult r = accepted();
  r.removeName = 1;
  return r;
}

YmodemBlockResult parseData(YmodemFile *file, const uint8_t *block) {
  puts("parse SOH filedata");
  YmodemBlockResult r = accepted();
  r.dataBlock = 1;
  const int32_t seq = block[kYmodemSeqOffset];
  if (seq == file->lastDataSeq) {
    // A sender that reads the 'C' after our ACK as a request to repeat sends
    // each block twice: answer the copy like the original, write it once.
    printf("block %d again, not written\n", static_cast<int>(seq));
    return r;
  }
  file->lastDataSeq = seq;
  r.data = block + kYmodemDataOffset;
  if (file->remaining == 0) {
    puts("----finished");
  } else if (file->remaining < static_cast<uint32_t>(kYmodemDataBytes)) {
    r.dataLen = file->remaining;  // the rest of the last block is fill
    file->remaining = 0;
  } else {
    r.dataLen = kYmodemDataBytes;
    file->remaining -= kYmodemDataBytes;
  }
  return r;
}

}  // namespace

void velquare_ymodem_file_reset(YmodemFile *file) {
  memset(file, 0, sizeof *file);
  file->expectHeader = 1;
  file->lastDataSeq = kYmodemNoDataBlock;
}

YmodemBlockResult velquare_ymodem_parse_block(YmodemFile *file, const uint8_t *block, int len) {
  if (len < kYmodemBlockBytes) {
    printf("err datalen[%d]\n", len);
    return failed(YMODEM_REPLY_NAK);
  }
  const uint16_t computed =
      velquare_ymodem_crc16(block + kYmodemDataOffset, len - kYmodemDataOffset - kYmodemCrcBytes);
  const uint16_t received = static_cast<uint16_t>(block[len - 2] << 8 | block[len - 1]);
  printf("retcrc16 : %04x, getcrc16 : %04x \n", computed, received);
  if (computed != received) {
    puts("velquare_Ymodem_parse_soh crc16 err");
    return failed(YMODEM_REPLY_NAK);
  }
  if (file->expectHeader) {
    if (block[kYmodemSeqOffset] == 0) return parseHeader(file, block, len);
    return failed(YMODEM_REPLY_NONE);
  }
  return parseData(file, block);
}
