// Thread start with the daemon's one way of reporting a failed pthread_create.
#pragma once
#include <pthread.h>

#include <cstdio>
#include <cstring>

// Creates a thread running entry(arg). On failure says which thread could not
// be started, and why, on standard error and returns -1; else 0. Callers that
// carry on without the thread do so knowingly (the report is the trace).
inline int startThread(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *),
                       void *arg, const char *name) {
  int rc = pthread_create(thread, attr, entry, arg);
  if (rc == 0) return 0;
  fprintf(stderr, "cannot start thread %s: %s\n", name, strerror(rc));
  return -1;
}
