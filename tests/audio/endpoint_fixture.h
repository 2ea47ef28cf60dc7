// Shared set-up of the audio tests: a sandbox with its own ALSA devices, and
// endpoint records put back to zero afterwards so cases can share a process.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "audio/audioprocess.h"
#include "lifecycle/process.h"
#include "support/alsa_sandbox.h"
#include "support/sandbox.h"

// Closes what init opened and zeroes the four records, without the teardown's
// one-second waits (no worker may be running).
inline void releaseEndpoints() {
  for (AudioEndpoint &ep : gEndpoints) {
    if (ep.pcm) snd_pcm_close(ep.pcm);
    free(ep.audiobuf);
    free(ep.pool.data);
    if (ep.info) snd_pcm_info_free(ep.info);
    memset(&ep, 0, sizeof ep);
  }
  readiFunc = snd_pcm_readi;
  startDelay = 0;
}

class AudioTest : public ::testing::Test {
 protected:
  void TearDown() override { releaseEndpoints(); }
  Sandbox box;
  AlsaSandbox alsa{box};
};
