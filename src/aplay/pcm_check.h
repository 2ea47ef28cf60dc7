// Checks shared by the PCM set-up and the recovery paths.
#pragma once

// Writes the C library's assertion message and aborts; the abort reaches
// program_exit through the SIGABRT handler.
[[noreturn]] void pcmAssertFailed(const char *expression, const char *file, unsigned line,
                                  const char *function);

// A negotiation step that must not fail: the sample player's assert(err >= 0),
// kept in release builds (NDEBUG) as well.
#define QV_PCM_ASSERT_OK(err) \
  ((err) >= 0 ? (void)0 : pcmAssertFailed("err >= 0", __FILE__, __LINE__, __func__))
