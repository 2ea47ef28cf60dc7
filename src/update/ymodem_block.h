// The receiver's decisions, pure so that they can be tested and fuzzed without
// a line: one chunk as the block reader collected it goes in; the reply, the
// bytes for the file and whether the transfer ended come out. The protocol
// thread carries them out (sends, writes, removes).
#pragma once
#include <cstdint>

#include "update/ymodem_protocol.h"

constexpr int kYmodemNameBytes = kYmodemDataBytes + 1;  // a name fills at most one block

// What the receiver knows about the file being received.
struct YmodemFile {
  int32_t expectHeader;  // 1 until block 0 with an accepted name has come
  char name[kYmodemNameBytes];
  uint32_t announced;  // the size given in block 0
  uint32_t remaining;  // file bytes still expected
  int32_t lastSeq;     // number of the last accepted block (0: the header)
  int32_t eotCount;    // EOTs answered (the first with NAK, the second with ACK 'C')
  int32_t overrun;     // a new data block came after the announced size was complete
};

enum YmodemReply {
  YMODEM_REPLY_NONE,   // silence: the sender times out
  YMODEM_REPLY_NAK,    // send this block again
  YMODEM_REPLY_ACK_C,  // accepted, go on
  YMODEM_REPLY_ACK,    // the closing empty block
};

enum YmodemEnd {
  YMODEM_GOES_ON,
  YMODEM_CLOSED,  // the empty block after the EOT exchange came
  YMODEM_BROKEN,  // a block is missing: the file cannot be completed
};

struct YmodemStep {
  YmodemReply reply;
  YmodemEnd end;
  int progress;         // 1: resets the idle time-out
  int keepFrom;         // > 0: the next block begins at this byte of the chunk
  int headerTaken;      // 1: the update file's header was accepted
  const uint8_t *data;  // bytes to append to the file (inside the chunk)
  uint32_t dataLen;
};

void velquare_ymodem_file_reset(YmodemFile *file);

// Acts on one chunk from the line (len >= 1 bytes; a block is exactly 133;
// a shorter chunk is one the reader handed on after the line went quiet).
YmodemStep velquare_ymodem_take_chunk(YmodemFile *file, const uint8_t *chunk, int len);

// 1 when exactly the announced number of bytes (at least one) was received
// and nothing beyond it: the only transfer that may be installed.
int velquare_ymodem_file_complete(const YmodemFile *file);
