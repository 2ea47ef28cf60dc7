// Block parser of the YMODEM receiver: pure, so it can be tested and fuzzed
// without a line. It decides the reply and which bytes go into the file; the
// protocol thread carries that out (sends, removes, writes).
#pragma once
#include <cstdint>

#include "update/ymodem_protocol.h"

constexpr int kYmodemNameBytes = kYmodemDataBytes + 1;  // a name fills at most one block
constexpr int32_t kYmodemNoDataBlock = -1;              // no data block accepted yet

// What the receiver knows about the file being received.
struct YmodemFile {
  int32_t expectHeader;  // 1 until block 0 with an accepted name has come
  char name[kYmodemNameBytes];
  uint32_t remaining;    // file bytes still expected, from block 0's size
  int32_t lastDataSeq;   // sequence number of the last data block accepted
};

enum YmodemReply {
  YMODEM_REPLY_NONE,   // silence: the sender times out
  YMODEM_REPLY_NAK,    // send this block again
  YMODEM_REPLY_ACK_C,  // accepted, go on
};

struct YmodemBlockResult {
  int status;           // 0 accepted, -1 failed
  YmodemReply reply;
  int removeName;       // 1: remove any file of the received name first
  int dataBlock;        // 1: a data block, the output file must be open
  const uint8_t *data;  // bytes to append to the file (inside the block)
  uint32_t dataLen;
};

void velquare_ymodem_file_reset(YmodemFile *file);

// Parses one block as read from the link (len bytes, at least 133 for a
// valid one) and advances the file state.
YmodemBlockResult velquare_ymodem_parse_block(YmodemFile *file, const uint8_t *block, int len);
