// buffpool: the 2 MiB single-writer, single-reader byte ring of an endpoint.
#pragma once
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/shared_word.h"

constexpr uint32_t BUFFPOOL_SIZE = 0x200000;
constexpr uint32_t BUFFPOOL_MASK = BUFFPOOL_SIZE - 1;
constexpr int BUFFPOOL_WRITE = 1;
constexpr int BUFFPOOL_READ = 2;

// The counters count bytes since creation and are never reduced; the byte of
// stream position p lives at data[p & BUFFPOOL_MASK]. Only the writer moves
// writeBuffPoolNum and only the reader moves readBuffPoolNum (shared_word.h).
struct BuffPool {
  int32_t created;
  uint8_t *data;
  uint64_t spare[2];
  uint64_t writeBuffPoolNum;
  uint64_t readBuffPoolNum;
};

int buffpool_create(BuffPool *pool);
int buffpool_delete(BuffPool *pool);
int buffpool_rw(BuffPool *pool, int direction, void *buffer, const int32_t *len);

// The ring rules themselves, shared by the named operations above, the
// capture workers (writers) and the angle service thread (reader). They do
// not look at the created flag: callers check it and report
// "err: audio buff not init" themselves. All or nothing: either n bytes move
// or none; a transfer may run across the ring's end and go on at index 0.

// Copies n ring bytes starting at stream position `from` (wrapping at the end).
inline void buffpoolCopyOut(const BuffPool &pool, uint64_t from, uint8_t *dst, uint32_t n) {
  if (n == 0) return;
  uint32_t start = static_cast<uint32_t>(from) & BUFFPOOL_MASK;
  uint32_t first = BUFFPOOL_SIZE - start < n ? BUFFPOOL_SIZE - start : n;
  memcpy(dst, pool.data + start, first);
  memcpy(dst + first, pool.data, n - first);
}

inline void buffpoolCopyIn(BuffPool &pool, uint64_t to, const uint8_t *src, uint32_t n) {
  if (n == 0) return;
  uint32_t start = static_cast<uint32_t>(to) & BUFFPOOL_MASK;
  uint32_t first = BUFFPOOL_SIZE - start < n ? BUFFPOOL_SIZE - start : n;
  memcpy(pool.data + start, src, first);
  memcpy(pool.data, src + first, n - first);
}

// Writer side: appends n bytes. More than the free space (a negative n always
// is, since it is compared as an unsigned 64-bit number) prints
// "audio is full, ..." and returns -1 with nothing changed; exactly the free
// space is accepted and leaves the ring full.
inline int buffpoolWriteBytes(BuffPool &pool, const void *buffer, int32_t n) {
  uint64_t written = sharedLoad(pool.writeBuffPoolNum);
  uint64_t freeBytes = sharedLoad(pool.readBuffPoolNum) + BUFFPOOL_SIZE - written;
  uint64_t wanted = static_cast<uint64_t>(static_cast<int64_t>(n));
  if (wanted > freeBytes) {
    // The board's build hands a 64-bit value to this %d and so prints the
    // upper word of the sign-extended length (0 for any real chunk), not the
    // fill level. Print that same number, portably.
    printf("audio is full, writeBuffPoolNum - readBuffPoolNum : %d\n",
           static_cast<int>(static_cast<int64_t>(n) >> 32));
    return -1;
  }
  buffpoolCopyIn(pool, written, static_cast<const uint8_t *>(buffer), static_cast<uint32_t>(n));
  sharedStore(pool.writeBuffPoolNum, written + wanted);
  return 0;
}

// Reader side: takes n bytes out. An empty ring, or fewer than n bytes
// available (a negative n included), returns -1 silently.
inline int buffpoolReadBytes(BuffPool &pool, void *buffer, int32_t n) {
  uint64_t read = sharedLoad(pool.readBuffPoolNum);
  uint64_t written = sharedLoad(pool.writeBuffPoolNum);
  if (read >= written) return -1;
  uint64_t wanted = static_cast<uint64_t>(static_cast<int64_t>(n));
  if (wanted > written - read) return -1;
  buffpoolCopyOut(pool, read, static_cast<uint8_t *>(buffer), static_cast<uint32_t>(n));
  sharedStore(pool.readBuffPoolNum, read + wanted);
  return 0;
}
