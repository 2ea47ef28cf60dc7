// The chunk read: short reads and retries assemble one whole chunk in order,
// and overruns, suspends and read errors are reported and recovered (or end
// the process where nothing can be done). Faults come through readiFunc.
#include <gmock/gmock.h>

#include <deque>

#include "aplay/pcm_config.h"
#include "audio/capture_worker.h"
#include "endpoint_fixture.h"
#include "support/output_capture.h"
#include "support/scripted_pcm.h"

namespace {

constexpr int kChannels = 8;  // digital microphones

// What the "driver" answers, call by call: an error code, or a number of
// frames delivered (clipped to the request). After the script: whole requests.
std::deque<snd_pcm_sframes_t> gScript;
uint32_t gNextFrame = 0;

snd_pcm_sframes_t scriptedReadi(snd_pcm_t *, void *buffer, snd_pcm_uframes_t frames) {
  // Each request asks for just what the chunk (2048 frames) still misses.
  if ((gNextFrame + frames) % 2048 != 0)
    ADD_FAILURE() << "asked for " << frames << " frames at " << gNextFrame;
  snd_pcm_sframes_t r = gScript.empty() ? snd_pcm_sframes_t(frames)
                                        : std::min(gScript.front(), snd_pcm_sframes_t(frames));
  if (!gScript.empty()) gScript.pop_front();
  // Each frame carries its stream position in every channel.
  auto *out = static_cast<uint16_t *>(buffer);
  for (snd_pcm_sframes_t f = 0; f < r; f++, gNextFrame++)
    for (int ch = 0; ch < kChannels; ch++) out[f * kChannels + ch] = uint16_t(gNextFrame);
  return r;
}

bool chunkIsInStreamOrder(const AudioEndpoint *ep) {
  auto *samples = reinterpret_cast<const uint16_t *>(ep->audiobuf);
  for (uint32_t i = 0; i < ep->chunk_size * kChannels; i++)
    if (samples[i] != uint16_t(i / kChannels)) return false;
  return true;
}

}  // namespace

class CaptureRead : public AudioTest {
 protected:
  void SetUp() override {
    stdoutOf([this] {
      ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC), 0);
      set_params(ep);
      captureFitChunkBuffer(ep);
    });
    readiFunc = scriptedReadi;
    gNextFrame = 0;  // cases may share a process
  }
  // Runs the capture on a scripted PCM instead, in the given state.
  void useScripted(snd_pcm_state_t state) {
    snd_pcm_close(ep->pcm);
    ep->pcm = scripted_.pcm();
    stdoutOf([this] { set_params(ep); });
    ASSERT_TRUE(state != SND_PCM_STATE_XRUN || snd_pcm_start(ep->pcm) == 0);
    scripted_.setState(state);
  }
  void TearDown() override {
    if (ep->pcm == scripted_.pcm()) ep->pcm = nullptr;  // closed by its owner
    AudioTest::TearDown();
  }
  AudioEndpoint *ep = &gEndpoints[EP_DIGITMIC];
  ScriptedPcm scripted_{"hw:0,3", SND_PCM_STREAM_CAPTURE};
};

struct ReadCase {
  const char *name;
  std::deque<snd_pcm_sframes_t> script;
  snd_pcm_state_t state;  // of a scripted PCM; OPEN: the sandbox's device
  const char *stderrRegex;
};

class CaptureReadCases : public CaptureRead, public testing::WithParamInterface<ReadCase> {};

TEST_P(CaptureReadCases, ChunkIsCompletedInStreamOrderWithTheReport) {
  SCOPED_TRACE(GetParam().name);
  const bool scripted = GetParam().state != SND_PCM_STATE_OPEN;
  if (scripted) useScripted(GetParam().state);
  gScript = GetParam().script;
  EXPECT_THAT(stderrOf([this] { EXPECT_EQ(pcm_read(ep), 2048u); }),
              testing::MatchesRegex(GetParam().stderrRegex));
  EXPECT_TRUE(chunkIsInStreamOrder(ep));
  EXPECT_TRUE(!scripted || snd_pcm_state(scripted_.pcm()) == SND_PCM_STATE_PREPARED)
      << "not prepared again";
}

constexpr snd_pcm_state_t kSandboxDevice = SND_PCM_STATE_OPEN;

const ReadCase kReadCases[] = {
    // 48 frames are left for the last request.
    {"ShortReadsAndRetries", {-EAGAIN, 100, 0, 900, -EAGAIN, 1000}, kSandboxDevice, ""},
    {"OtherErrorsLoggedAndRetried",
     {-EIO, 10, -EBADFD},
     kSandboxDevice,
     ": pcm_read:[0-9]+: read error: Input/output error\n"
     ": pcm_read:[0-9]+: read error: File descriptor in bad state\n"},
    {"SuspendResumed", {500, -ESTRPIPE}, kSandboxDevice, "Suspended. Trying resume. Done.\n"},
    {"OverrunReportedAndPrepared",
     {700, -EPIPE},
     SND_PCM_STATE_XRUN,
     "overrun!!! \\(at least [0-9]+\\.[0-9][0-9][0-9] ms long\\)\n"},
    {"DrainingPrepared",
     {-EPIPE},
     SND_PCM_STATE_DRAINING,
     "capture stream format change\\? attempting recover\\.\\.\\.\n"},
};

INSTANTIATE_TEST_SUITE_P(Faults, CaptureReadCases, testing::ValuesIn(kReadCases));

using CaptureReadDeathTest = CaptureRead;

TEST_F(CaptureReadDeathTest, BrokenPipeOutsideAnOverrunEndsTheProcess) {
  gScript = {-EPIPE};
  EXPECT_EXIT(pcm_read(ep), ::testing::ExitedWithCode(1),
              "^: xrun:[0-9]+: read/write error, state = PREPARED\n$");
}

TEST_F(CaptureReadDeathTest, SuspendThatCannotBeRestartedEndsTheProcess) {
  useScripted(SND_PCM_STATE_PREPARED);
  snd_pcm_hw_free(ep->pcm);  // a PCM without a configuration refuses resume and prepare
  gScript = {-ESTRPIPE};
  EXPECT_EXIT(pcm_read(ep), ::testing::ExitedWithCode(1),
              "Failed. Restarting stream. : suspend:[0-9]+: suspend: prepare error: ");
}
