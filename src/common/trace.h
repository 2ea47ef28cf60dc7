// Console trace lines. The daemon's own lines start with "-->function line: ",
// the angle module's error lines with "------err: function line ---> ".
#pragma once
#include <cstdio>

#define QV_TRACE(fmt, ...) printf("-->%s %d: " fmt, __func__, __LINE__, ##__VA_ARGS__)
#define QV_TRACE_AS(func, fmt, ...) printf("-->%s %d: " fmt, func, __LINE__, ##__VA_ARGS__)

// Errors taken over from the ALSA sample player: "%s: %s:%d: " with an empty
// program name, the function and the line, then the message, on stderr.
#define QV_PCM_ERROR(fmt, ...)                              \
  do {                                                      \
    fprintf(stderr, "%s: %s:%d: ", "", __func__, __LINE__); \
    fprintf(stderr, fmt, ##__VA_ARGS__);                    \
    putc('\n', stderr);                                     \
  } while (0)
