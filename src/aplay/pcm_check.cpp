#include "aplay/pcm_check.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

void pcmAssertFailed(const char *expression, const char *file, unsigned line,
                     const char *function) {
  fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name, file,
          line, function, expression);
  fflush(stderr);
  abort();
}
