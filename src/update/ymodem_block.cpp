#include "update/ymodem_block.h"

#include <cstdio>
#include <cstring>

#include "update/ymodem_crc16.h"

namespace {

YmodemStep reply(YmodemReply r) {
  YmodemStep s{};
  s.reply = r;
  return s;
}

YmodemStep accepted() {
  YmodemStep s = reply(YMODEM_REPLY_ACK_C);
  s.progress = 1;
  return s;
}

// Where a later block begins inside a chunk: an SOH followed by a sequence
// number and its complement, or by as much of them as the chunk still holds.
// 0: nowhere.
int nextBlockAt(const uint8_t *chunk, int len) {
  for (int i = 1; i < len; ++i) {
    const bool pairInside = i + 2 < len;
    if (chunk[i] == kYmodemSoh && (!pairInside || (chunk[i + 1] ^ chunk[i + 2]) == 0xFF)) return i;
  }
  return 0;
}

// A chunk that is not a block. A whole block's length means the line did not
// go quiet: when a block begins inside it, the sender is already past this
// fragment (sb runs ahead of the replies, see parseData), so the fragment gets
// no reply and the reader keeps the new block's bytes. A chunk handed on after
// quiet, or one with no block inside, is answered with a NAK.
YmodemStep notABlock(const uint8_t *chunk, int len) {
  const int next = len == kYmodemBlockBytes ? nextBlockAt(chunk, len) : 0;
  if (next == 0) return reply(YMODEM_REPLY_NAK);
  printf("next block at byte %d\n", next);
  YmodemStep s = reply(YMODEM_REPLY_NONE);
  s.keepFrom = next;
  return s;
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
// Only the update file's own name is taken; nothing of any other name is touched.
YmodemStep parseHeader(YmodemFile *file, const uint8_t *payload) {
  int nameLen = 0;
  while (nameLen < kYmodemDataBytes && payload[nameLen] != 0) ++nameLen;
  memcpy(file->name, payload, static_cast<size_t>(nameLen));
  file->name[nameLen] = 0;

  if (strcmp(file->name, kYmodemBackupFileName) == 0) return reply(YMODEM_REPLY_NONE);
  if (strcmp(file->name, kYmodemUpdateFileName) != 0) {
    printf("ymodem update filename(%s) is not %s\n", file->name, kYmodemUpdateFileName);
    return reply(YMODEM_REPLY_NONE);
  }
  printf("fileName : %s\n", file->name);
  const int sizeAt = nameLen + 1;
  file->announced =
      sizeAt < kYmodemDataBytes ? parseDecimal(payload + sizeAt, kYmodemDataBytes - sizeAt) : 0;
  file->remaining = file->announced;
  printf("fileSize : %d\n", static_cast<int>(file->remaining));
  file->expectHeader = 0;
  file->lastSeq = 0;
  YmodemStep s = accepted();
  s.headerTaken = 1;
  return s;
}

YmodemStep parseData(YmodemFile *file, const uint8_t *block) {
  puts("parse SOH filedata");
  const int32_t seq = block[kYmodemSeqOffset];
  if (seq == file->lastSeq) {
    // Its ACK was lost, or the sender read our 'C' as a request to repeat
    // (sb does, and sends every block twice): answer it again, write it once.
    // A repeated header lands here too.
    printf("block %d again, not written\n", static_cast<int>(seq));
    return accepted();
  }
  if (seq != ((file->lastSeq + 1) & 0xFF)) {
    printf("block %d after block %d: a block is missing\n", static_cast<int>(seq),
           static_cast<int>(file->lastSeq));
    YmodemStep s = reply(YMODEM_REPLY_NONE);
    s.end = YMODEM_BROKEN;
    return s;
  }
  file->lastSeq = seq;
  YmodemStep s = accepted();
  s.data = block + kYmodemDataOffset;
  if (file->remaining == 0) {
    puts("----finished");
    file->overrun = 1;  // more blocks than the announced size needs
  } else if (file->remaining < static_cast<uint32_t>(kYmodemDataBytes)) {
    s.dataLen = file->remaining;  // the rest of the last block is fill
    file->remaining = 0;
  } else {
    s.dataLen = kYmodemDataBytes;
    file->remaining -= kYmodemDataBytes;
  }
  return s;
}

YmodemStep parseBlock(YmodemFile *file, const uint8_t *block, int len) {
  if (len != kYmodemBlockBytes) {
    printf("err datalen[%d]\n", len);
    return notABlock(block, len);
  }
  const uint16_t computed = velquare_ymodem_crc16(block + kYmodemDataOffset, kYmodemDataBytes);
  const uint16_t received = static_cast<uint16_t>(block[len - 2] << 8 | block[len - 1]);
  printf("retcrc16 : %04x, getcrc16 : %04x \n", computed, received);
  if (computed != received) {
    puts("velquare_Ymodem_parse_soh crc16 err");
    return notABlock(block, len);
  }
  if ((block[kYmodemSeqOffset] ^ block[kYmodemSeqOffset + 1]) != 0xFF) {
    printf("err block number %02x %02x\n", block[kYmodemSeqOffset], block[kYmodemSeqOffset + 1]);
    return notABlock(block, len);
  }
  if (file->expectHeader)
    return block[kYmodemSeqOffset] == 0 ? parseHeader(file, block + kYmodemDataOffset)
                                        : reply(YMODEM_REPLY_NONE);
  return parseData(file, block);
}

}  // namespace

void velquare_ymodem_file_reset(YmodemFile *file) {
  memset(file, 0, sizeof *file);
  file->expectHeader = 1;
}

YmodemStep velquare_ymodem_take_chunk(YmodemFile *file, const uint8_t *chunk, int len) {
  if (chunk[0] == kYmodemSoh) {
    if (file->eotCount == 0) return parseBlock(file, chunk, len);
    YmodemStep s = reply(YMODEM_REPLY_ACK);  // the empty block 0 that closes the batch
    s.end = YMODEM_CLOSED;
    return s;
  }
  // An EOT stands alone: one that begins a longer chunk is line noise on the
  // header byte of a block, which must come again.
  if (chunk[0] == kYmodemEot && len == 1) {
    YmodemStep s = reply(file->eotCount == 0   ? YMODEM_REPLY_NAK
                         : file->eotCount == 1 ? YMODEM_REPLY_ACK_C
                                               : YMODEM_REPLY_NONE);
    if (file->eotCount < 2) ++file->eotCount;
    s.progress = 1;
    return s;
  }
  return notABlock(chunk, len);  // also STX: 1024-byte blocks are not taken
}

int velquare_ymodem_file_complete(const YmodemFile *file) {
  return !file->expectHeader && file->announced > 0 && file->remaining == 0 && !file->overrun;
}
