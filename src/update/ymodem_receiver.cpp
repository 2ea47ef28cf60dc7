// The YMODEM receiver's three threads. The protocol thread answers the
// sender and writes the file; the block reader collects raw blocks from the
// link and hands them over through the block-ready word; the time-out thread
// fails the transfer after a few seconds without progress. No locks: the
// block buffer and its length belong to the reader while block-ready is 0 and
// to the protocol thread while it is 1; every other shared word has one
// writer, except stage and idle seconds, which the protocol and time-out
// threads both write.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/shared_word.h"
#include "common/thread_start.h"
#include "update/update_paths.h"
#include "update/ymodem.h"
#include "update/ymodem_block.h"

namespace {

constexpr uint32_t kStageStart = 0;
constexpr uint32_t kStageRunning = 1;  // the first 'C' went out
constexpr uint32_t kStageFinished = 5;
constexpr uint32_t kStageFailed = 6;

constexpr int32_t kIdleLimitSeconds = 5;  // more than this without progress fails
// Receive calls that bring nothing, after a chunk's latest byte, before a
// chunk shorter than a block is handed on: about 56 ms of quiet.
constexpr int kReaderCallsPerBlock = 11;
constexpr useconds_t kReaderWaitReadyUs = 2000;  // while the protocol thread holds a block
constexpr useconds_t kReaderBetweenCallsUs = 5000;
// A turn of the protocol thread. Far shorter than a block takes on the line
// (11.5 ms at 115200 baud): a sender that sends every block twice (sb) must
// not build up a backlog in the line's buffers.
constexpr useconds_t kProtocolTurnUs = 2000;

struct YmodemContext {
  uint32_t stage;
  uint8_t block[kYmodemBlockBytes];  // the reader never asks for more than a block lacks
  int32_t idleSeconds;
  YmodemFile file;  // name, sizes, expect-header, last block, EOTs
  int32_t blockLen;
  uint32_t blockReady;
  YmodemSend send;
  YmodemRecv recv;
  YmodemDone done;
};

YmodemContext ctx;
int outFd = -1;
int writeFailed;
int threadsRunning;

bool running() {
  const uint32_t stage = sharedLoad(ctx.stage);
  return stage != kStageFinished && stage != kStageFailed;
}

void sendReply(YmodemReply reply) {
  static const uint8_t ackC[] = {kYmodemAck, kYmodemCrcRequest};
  if (reply == YMODEM_REPLY_NAK) ctx.send(&kYmodemNak, 1);
  if (reply == YMODEM_REPLY_ACK) ctx.send(&kYmodemAck, 1);
  if (reply == YMODEM_REPLY_ACK_C) ctx.send(ackC, sizeof ackC);
}

// The file always goes to its one fixed path: no received byte names a file.
void appendToFile(const uint8_t *data, uint32_t len) {
  if (outFd < 0) outFd = open(kUpdateOtaPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (outFd < 0) {
    perror(kUpdateOtaPath);
    writeFailed = 1;
    return;
  }
  for (uint32_t done = 0; done < len;) {
    const ssize_t n = write(outFd, data + done, len - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      perror(kUpdateOtaPath);
      writeFailed = 1;
      return;
    }
    done += static_cast<uint32_t>(n);
  }
}

// Runs while the reader waits for the block-ready word, so the block buffer
// is this thread's: the bytes of a block that began inside the chunk are moved
// to its start, and blockLen tells the reader how many it holds.
void takeBlock() {
  const YmodemStep s = velquare_ymodem_take_chunk(&ctx.file, ctx.block, ctx.blockLen);
  if (s.headerTaken) unlink(kUpdateOtaPath);  // left over from an earlier try
  if (s.dataLen > 0) appendToFile(s.data, s.dataLen);
  sendReply(s.reply);
  if (s.progress) sharedStore(ctx.idleSeconds, 0);
  if (s.end == YMODEM_CLOSED) sharedStore(ctx.stage, kStageFinished);
  if (s.end == YMODEM_BROKEN) sharedStore(ctx.stage, kStageFailed);
  const int kept = s.keepFrom > 0 ? ctx.blockLen - s.keepFrom : 0;
  memmove(ctx.block, ctx.block + s.keepFrom, static_cast<size_t>(kept));
  ctx.blockLen = kept;
}

// Only a file of exactly the announced size, written without error, is
// reported complete, however the transfer ended (closing block or time-out).
void finish() {
  if (outFd >= 0) {
    close(outFd);
    outFd = -1;
  }
  if (!velquare_ymodem_file_complete(&ctx.file) || writeFailed) {
    sharedStore(ctx.stage, kStageFailed);
    ctx.done(0);
    if (!ctx.file.expectHeader) unlink(kUpdateOtaPath);
    puts("----- StageErr ");
    return;
  }
  sharedStore(ctx.stage, kStageFinished);
  ctx.done(1);
  puts("----- StageFinished ");
}

void threadEnds() { __atomic_sub_fetch(&threadsRunning, 1, __ATOMIC_ACQ_REL); }

void *protocolThread(void *) {
  pthread_detach(pthread_self());
  sharedStore(ctx.stage, kStageStart);
  while (running()) {
    if (sharedLoad(ctx.stage) == kStageStart) {
      ctx.send(&kYmodemCrcRequest, 1);
      puts("send C");
      sharedStore(ctx.stage, kStageRunning);
    } else if (sharedLoad(ctx.blockReady) == 1) {
      takeBlock();
      sharedStore(ctx.blockReady, 0);
    }
    usleep(kProtocolTurnUs);
  }
  finish();
  threadEnds();
  return nullptr;
}

// Asks only for the bytes the block still lacks, so a chunk never runs into
// the next block; a chunk may start with bytes the protocol thread kept from
// the one before.
void *readerThread(void *) {
  pthread_detach(pthread_self());
  int got = 0;
  int calls = 0;
  while (running()) {
    const int n = ctx.recv(ctx.block + got, kYmodemBlockBytes - got);
    if (n > 0) got += n;
    calls = n > 0 ? 1 : got > 0 ? calls + 1 : 0;
    // A whole block goes on at once; anything shorter (EOT, noise, a block
    // that lost a byte on the line) once the line has been quiet for the
    // calls: a short block is then answered with a NAK and the sender
    // repeats it, instead of both sides waiting for the time-out. A sender
    // that is merely slow (a loaded host) keeps its block open.
    if (got < kYmodemBlockBytes && calls < kReaderCallsPerBlock) {
      usleep(kReaderBetweenCallsUs);
      continue;
    }
    printf("recv data[%d]\n", got);
    ctx.blockLen = got;
    sharedStore(ctx.blockReady, 1);
    while (sharedLoad(ctx.blockReady) && running()) usleep(kReaderWaitReadyUs);
    got = sharedLoad(ctx.blockReady) ? 0 : ctx.blockLen;
    calls = got > 0 ? 1 : 0;
  }
  if (got > 0) printf("recv all data [%d]\n", got);
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
  outFd = -1;
  writeFailed = 0;
  const struct {
    void *(*entry)(void *);
    const char *name;
  } threads[] = {{protocolThread, "ymodem protocol"},
                 {readerThread, "ymodem block reader"},
                 {timeoutThread, "ymodem time-out"}};
  for (const auto &t : threads) {
    __atomic_add_fetch(&threadsRunning, 1, __ATOMIC_ACQ_REL);
    pthread_t thread;
    if (startThread(&thread, nullptr, t.entry, nullptr, t.name) != 0) threadEnds();
  }
  return 0;
}

int velquare_ymodem_threads_running() { return __atomic_load_n(&threadsRunning, __ATOMIC_ACQUIRE); }
