// Checks shared by the PCM set-up and the recovery paths.
#pragma once
#include "audio/audio_wiring.h"
#include "common/trace.h"

// Writes the C library's assertion message and aborts; the abort reaches
// program_exit through the SIGABRT handler.
[[noreturn]] void pcmAssertFailed(const char *expression, const char *file, unsigned line,
                                  const char *function);

// A negotiation step that must not fail: the sample player's assert(err >= 0),
// kept in release builds (NDEBUG) as well.
#define QV_PCM_ASSERT_OK(err) \
  ((err) >= 0 ? (void)0 : pcmAssertFailed("err >= 0", __FILE__, __LINE__, __func__))

// A fatal PCM error: its message in the sample player's form on standard
// error, then the exit routine with status 1 (every open PCM closed first).
#define QV_PCM_FATAL(fmt, ...)        \
  do {                                \
    QV_PCM_ERROR(fmt, ##__VA_ARGS__); \
    program_exit(1);                  \
  } while (0)
