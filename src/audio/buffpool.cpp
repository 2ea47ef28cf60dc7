#include "audio/buffpool.h"

#include <cstdio>
#include <cstdlib>

int buffpool_create(BuffPool *pool) {
  if (pool == nullptr) {
    puts("buffpool create err");
    return -1;
  }
  pool->data = static_cast<uint8_t *>(malloc(BUFFPOOL_SIZE));
  if (pool->data == nullptr) {
    puts("buffpool malloc err");
    return -1;
  }
  pool->spare[0] = 0;
  pool->spare[1] = 0;
  sharedStore(pool->writeBuffPoolNum, 0);
  sharedStore(pool->readBuffPoolNum, 0);
  sharedStore(pool->created, 1);
  return 0;
}

int buffpool_delete(BuffPool *pool) {
  if (pool == nullptr) {
    puts("buffpool delete err");
    return -1;
  }
  sharedStore(pool->created, 0);
  free(pool->data);
  pool->data = nullptr;
  return 0;
}

// The created flag is checked before the direction, for every direction.
static bool poolReady(const BuffPool &pool) {
  if (sharedLoad(pool.created) != 0) return true;
  puts("err: audio buff not init");
  return false;
}

int buffpool_rw(BuffPool *pool, int direction, void *buffer, const int32_t *len) {
  if (pool == nullptr) {
    puts("buffpool write|read err");
    return -1;
  }
  if (!poolReady(*pool)) return -1;
  if (direction == BUFFPOOL_WRITE) return buffpoolWriteBytes(*pool, buffer, *len);
  if (direction == BUFFPOOL_READ) return buffpoolReadBytes(*pool, buffer, *len);
  return 0;
}
