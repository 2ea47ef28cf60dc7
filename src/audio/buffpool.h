// buffpool: the 2 MiB single-writer, single-reader byte ring of an endpoint.
#pragma once
#include <cstdint>

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
int buffpool_rw_by_type(uint32_t type, int direction, void *buffer, const int32_t *len);
