#include "lifecycle/process.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "audio/audioprocess.h"
#include "common/shared_word.h"

uint32_t runSeconds = 0;
int32_t inAborting = 0;
int32_t mainRun = 0;
int32_t angleProcRun = 0;

// The order in which the exit routine and the abort handler visit the PCMs.
static constexpr AudioEndpointIndex kPcmOrder[] = {EP_DIGITMIC, EP_ANALOGMIC, EP_LINEIN,
                                                   EP_LINEOUT};

// Argument of snd_pcm_nonblock that puts a PCM into abort mode: pending and
// later reads and waits return at once.
static constexpr int kPcmAbortMode = 2;

namespace {

// The abort handler's line for every signal, written out before any handler
// can run: inside a handler neither strsignal nor stdio may be called, write
// may. The daemon never changes its locale, so these are the same bytes
// strsignal would give later.
struct AbortLines {
  char text[NSIG][96];
  size_t length[NSIG];
  AbortLines() {
    for (int sig = 0; sig < NSIG; ++sig) {
      int n = snprintf(text[sig], sizeof text[sig], "Aborted by signal %s...\n", strsignal(sig));
      length[sig] = n < 0 ? 0 : std::min(size_t(n), sizeof text[sig] - 1);
    }
  }
};
const AbortLines gAbortLines;

}  // namespace

void program_exit(int status) {
  for (AudioEndpointIndex index : kPcmOrder) {
    snd_pcm_t *pcm = sharedLoad(gEndpoints[index].pcm);
    if (pcm != nullptr) {
      snd_pcm_close(pcm);
      sharedStore(gEndpoints[index].pcm, nullptr);
    }
  }
  exit(status);
}

// Stopping takes two signals: the first puts every PCM into abort mode and
// re-installs the default action, so the capture workers spin on failed
// reads while the process lives on; the second SIGINT or SIGTERM ends it.
// SIGABRT ends it at once with status 1, without closing the PCMs.
void abort_signal_handler(int sig) {
  if (sharedLoad(inAborting) != 0) return;
  sharedStore(inAborting, 1);
  if (sig >= 0 && sig < NSIG) {
    ssize_t written = write(STDERR_FILENO, gAbortLines.text[sig], gAbortLines.length[sig]);
    (void)written;  // nothing to be done about a lost line here
  }
  for (AudioEndpointIndex index : kPcmOrder) {
    snd_pcm_t *pcm = sharedLoad(gEndpoints[index].pcm);
    if (pcm != nullptr) snd_pcm_nonblock(pcm, kPcmAbortMode);
  }
  if (sig == SIGABRT) {
    for (AudioEndpointIndex index : kPcmOrder) sharedStore(gEndpoints[index].pcm, nullptr);
    program_exit(1);
  }
  signal(sig, SIG_DFL);
}
