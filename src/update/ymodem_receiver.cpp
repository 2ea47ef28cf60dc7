// The YMODEM receiver's three threads. The protocol thread answers the
// sender and writes the file; the block reader collects raw blocks from the
// link and hands them over through the block-ready word; the time-out thread
// fails the transfer after a few seconds without progress. No locks: each
// shared word has one writer, except stage and idle seconds, which the
// protocol and time-out threads both write.
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/shared_word.h"
#include "edge_config.h"
#include "update/ymodem.h"
#include "update/ymodem_block.h"

namespace {

constexpr uint32_t kStageStart = 0;
constexpr uint32_t kStageRunning = 1;   // the first 'C' went out
constexpr uint32_t kStageFinished = 5;
constexpr uint32_t kStageFailed = 6;

constexpr int32_t kIdleLimitSeconds = 5;      // more than this without progress fails
constexpr int kReaderCallsPerBlock = 11;      // receive calls before a partial block is handed on
constexpr useconds_t kReaderWaitReadyUs = 2000;    // while the protocol thread holds a block
constexpr useconds_t kReaderBetweenCallsUs = 5000;
constexpr useconds_t kProtocolTurnUs = 10000;
// The reader asks for a whole block at the current fill point, so a block can
// overfill; keep ample room.
constexpr int kBlockBufferBytes = 2048;

struct YmodemContext {
  uint32_t stage;
  uint8_t block[kBlockBufferBytes];
  int32_t idleSeconds;
  YmodemFile file;  // name, remaining bytes, expect-header, last data block
  int32_t blockLen;
  uint32_t blockReady;
  YmodemSend send;
  YmodemRecv recv;
  YmodemDone done;
};

YmodemContext ctx;
FILE *outFile;
int eotCount;
int threadsRunning;

bool running() {
  const uint32_t stage = sharedLoad(ctx.stage);
  return stage != kStageFinished && stage != kStageFailed;
}

void sendBytes(const uint8_t *bytes, int len) { ctx.send(bytes, len); }

void sendByte(uint8_t byte) { sendBytes(&byte, 1); }

void sendAckC() {
  const uint8_t reply[] = {kYmodemAck, kYmodemCrcRequest};
  sendBytes(reply, sizeof reply);
}

void removeRelative(const char *name) {
  char cmd[sizeof(QV_CMD_REMOVE) + kYmodemNameBytes + 2];
  snprintf(cmd, sizeof cmd, "%s %s", QV_CMD_REMOVE, name);
  (void)!system(cmd);
}

void appendToFile(const YmodemBlockResult &r) {
  if (!outFile) {
    char path[sizeof(QV_ROOT_DIR) + kYmodemNameBytes + 2];
    snprintf(path, sizeof path, "%s/%s", QV_ROOT_DIR, ctx.file.name);
    outFile = fopen(path, "a+");
    if (!outFile) perror(path);
  }
  if (outFile && r.dataLen > 0) fwrite(r.data, 1, r.dataLen, outFile);
}

// Acts on one block; returns 0 when it counts as progress.
int handleSoh(int endFlag) {
  if (endFlag) {  // the empty block 0 after the EOT exchange closes the batch
    sendByte(kYmodemAck);
    sharedStore(ctx.stage, kStageFinished);
    return -1;
  }
  const YmodemBlockResult r = velquare_ymodem_parse_block(&ctx.file, ctx.block, ctx.blockLen);
  if (r.removeName) removeRelative(ctx.file.name);
  if (r.dataBlock) appendToFile(r);
  if (r.reply == YMODEM_REPLY_NAK) sendByte(kYmodemNak);
  if (r.reply == YMODEM_REPLY_ACK_C) sendAckC();
  return r.status;
}

// EOT is answered first with NAK, then with ACK 'C'; returns the end flag.
int handleEot() {
  if (eotCount == 0) {
    sendByte(kYmodemNak);
    eotCount = 1;
  } else if (eotCount == 1) {
    sendAckC();
    eotCount = 2;
  }
  return eotCount;
}

void finish() {
  // Everything written reaches the file before the installer looks at it.
  if (outFile) {
    fclose(outFile);
    outFile = nullptr;
  }
  if (sharedLoad(ctx.stage) == kStageFailed) {
    if (ctx.file.remaining != 0) {
      ctx.done(0);
      removeRelative(ctx.file.name);
      puts("----- StageErr ");
      return;
    }
    sharedStore(ctx.stage, kStageFinished);  // nothing was left to come
  }
  ctx.done(1);
  puts("----- StageFinished ");
}

void threadEnds() { __atomic_sub_fetch(&threadsRunning, 1, __ATOMIC_ACQ_REL); }

void *protocolThread(void *) {
  pthread_detach(pthread_self());
  sharedStore(ctx.stage, kStageStart);
  int endFlag = 0;
  while (running()) {
    if (sharedLoad(ctx.stage) == kStageStart) {
      sendByte(kYmodemCrcRequest);
      puts("send C");
      sharedStore(ctx.stage, kStageRunning);
      endFlag = 0;
    } else if (sharedLoad(ctx.blockReady) == 1) {
      const uint8_t first = ctx.block[0];
      if (first == kYmodemSoh) {
        if (handleSoh(endFlag) == 0) sharedStore(ctx.idleSeconds, 0);
      } else if (first == kYmodemEot) {
        endFlag = handleEot();
        sharedStore(ctx.idleSeconds, 0);
      } else {
        sendByte(kYmodemNak);  // also STX: 1024-byte blocks are not taken
      }
      sharedStore(ctx.blockReady, 0);
    }
    usleep(kProtocolTurnUs);
  }
  finish();
  threadEnds();
  return nullptr;
}

void *readerThread(void *) {
  pthread_detach(pthread_self());
  int got = 0;
  while (running()) {
    if (sharedLoad(ctx.blockReady)) {
      usleep(kReaderWaitReadyUs);
      continue;
    }
    bool handOn = true;
    for (int calls = 1;; ++calls) {
      const int n = ctx.recv(ctx.block + got, kYmodemBlockBytes);
      if (n > 0) got += n;
      if (got >= kYmodemBlockBytes || calls >= kReaderCallsPerBlock) break;
      if (!running()) {
        printf("recv all data [%d]\n", got);
        handOn = false;
        break;
      }
      usleep(kReaderBetweenCallsUs);
      if (sharedLoad(ctx.blockReady)) {
        usleep(kReaderWaitReadyUs);
        handOn = false;
        break;
      }
    }
    if (!handOn || got == 0) continue;
    printf("recv data[%d]\n", got);
    ctx.blockLen = got;
    sharedStore(ctx.blockReady, 1);
    got = 0;
  }
  threadEnds();
  return nullptr;
}

void *timeoutThread(void *) {
  pthread_detach(pthread_self());
  sharedStore(ctx.idleSeconds, 0);
  while (running()) {
    sleep(1);
    // Atomic add, so a reset by the protocol thread in between is not lost.
    if (__atomic_add_fetch(&ctx.idleSeconds, 1, __ATOMIC_ACQ_REL) > kIdleLimitSeconds) {
      sharedStore(ctx.stage, kStageFailed);
      puts("timeout ");
    }
  }
  threadEnds();
  return nullptr;
}

}  // namespace

int velquare_ymodem_start(YmodemSend send, YmodemRecv recv, YmodemDone done) {
  memset(&ctx, 0, sizeof ctx);
  velquare_ymodem_file_reset(&ctx.file);
  ctx.send = send;
  ctx.recv = recv;
  ctx.done = done;
  outFile = nullptr;
  eotCount = 0;
  void *(*const entries[])(void *) = {protocolThread, readerThread, timeoutThread};
  for (auto entry : entries) {
    __atomic_add_fetch(&threadsRunning, 1, __ATOMIC_ACQ_REL);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, entry, nullptr) != 0) {
      perror("ymodem thread");
      threadEnds();
    }
  }
  return 0;
}

int velquare_ymodem_threads_running() { return __atomic_load_n(&threadsRunning, __ATOMIC_ACQUIRE); }
