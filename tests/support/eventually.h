// Polling for a condition another thread or process brings about.
#pragma once
#include <unistd.h>

// Polls `done` every 5 ms until it holds or about timeoutMs have passed.
template <class Predicate>
bool eventually(Predicate done, int timeoutMs = 2000) {
  for (int i = 0; i < timeoutMs / 5; ++i) {
    if (done()) return true;
    usleep(5000);
  }
  return done();
}
