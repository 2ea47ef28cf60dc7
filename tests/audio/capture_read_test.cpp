// The chunk read: short reads and retries assemble one whole chunk in order,
// and overruns, suspends and read errors are reported and recovered (or end
// the process where nothing can be done). Faults come through readiFunc.
#include <gmock/gmock.h>

#include <deque>
#include <vector>

#include "aplay/pcm_config.h"
#include "audio/capture_worker.h"
#include "endpoint_fixture.h"
#include "scripted_pcm.h"

using ::testing::ContainsRegex;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

namespace {

constexpr int kChannels = 8;  // digital microphones

// What the "driver" answers, call by call: an error code, or a number of
// frames delivered (clipped to the request). After the script: whole requests.
std::deque<snd_pcm_sframes_t> gScript;
std::vector<snd_pcm_uframes_t> gRequests;
uint32_t gNextFrame = 0;

snd_pcm_sframes_t scriptedReadi(snd_pcm_t *, void *buffer, snd_pcm_uframes_t frames) {
  gRequests.push_back(frames);
  snd_pcm_sframes_t r = snd_pcm_sframes_t(frames);
  if (!gScript.empty()) {
    r = gScript.front();
    gScript.pop_front();
  }
  if (r > snd_pcm_sframes_t(frames)) r = snd_pcm_sframes_t(frames);
  // Each frame carries its stream position in every channel.
  auto *out = static_cast<uint16_t *>(buffer);
  for (snd_pcm_sframes_t f = 0; f < r; f++, gNextFrame++)
    for (int ch = 0; ch < kChannels; ch++) out[f * kChannels + ch] = uint16_t(gNextFrame);
  return r;
}

bool chunkIsFramesFrom(const AudioEndpoint *ep, uint32_t first) {
  auto *samples = reinterpret_cast<const uint16_t *>(ep->audiobuf);
  for (uint32_t f = 0; f < ep->chunk_size; f++)
    for (int ch = 0; ch < kChannels; ch++)
      if (samples[f * kChannels + ch] != uint16_t(first + f)) return false;
  return true;
}

}  // namespace

class CaptureRead : public AudioTest {
 protected:
  void SetUp() override {
    gScript.clear();
    gRequests.clear();
    gNextFrame = 0;
    CaptureStdout();
    ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC), 0);
    ep = &gEndpoints[EP_DIGITMIC];
    set_params(ep);
    captureFitChunkBuffer(ep);
    GetCapturedStdout();
    readiFunc = scriptedReadi;
  }
  // Runs the capture on a scripted PCM instead (closed by its owner).
  void useScripted(ScriptedPcm &pcm) {
    snd_pcm_close(ep->pcm);
    ep->pcm = pcm.pcm();
    scripted_ = true;
    CaptureStdout();
    set_params(ep);
    GetCapturedStdout();
  }
  void TearDown() override {
    if (scripted_) ep->pcm = nullptr;
    AudioTest::TearDown();
  }
  AudioEndpoint *ep = nullptr;
  bool scripted_ = false;
};

TEST_F(CaptureRead, ShortReadsAndRetriesFillOneChunkInStreamOrder) {
  gScript = {-EAGAIN, 100, 0, 900, -EAGAIN, 1000};  // 48 frames are left for the last request
  CaptureStderr();
  EXPECT_EQ(pcm_read(ep), 2048u);
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_TRUE(chunkIsFramesFrom(ep, 0));
  EXPECT_EQ(gRequests, (std::vector<snd_pcm_uframes_t>{2048, 2048, 1948, 1948, 1048, 1048, 48}));
  EXPECT_EQ(pcm_read(ep), 2048u);
  EXPECT_TRUE(chunkIsFramesFrom(ep, 2048));
}

TEST_F(CaptureRead, OtherReadErrorsAreLoggedAndRetried) {
  gScript = {-EIO, 10, -EBADFD};
  CaptureStderr();
  EXPECT_EQ(pcm_read(ep), 2048u);
  std::string err = GetCapturedStderr();
  EXPECT_THAT(err, ContainsRegex("^: pcm_read:[0-9]+: read error: Input/output error\n"));
  EXPECT_THAT(err, ContainsRegex(": pcm_read:[0-9]+: read error: File descriptor in bad state\n$"));
  EXPECT_TRUE(chunkIsFramesFrom(ep, 0));
}

TEST_F(CaptureRead, SuspendIsResumedAndTheChunkCompleted) {
  gScript = {500, -ESTRPIPE};
  CaptureStderr();
  EXPECT_EQ(pcm_read(ep), 2048u);
  EXPECT_EQ(GetCapturedStderr(), "Suspended. Trying resume. Done.\n");
  EXPECT_TRUE(chunkIsFramesFrom(ep, 0));
}

TEST_F(CaptureRead, OverrunIsReportedOnceAndTheStreamPreparedAgain) {
  ScriptedPcm pcm("hw:0,3", SND_PCM_STREAM_CAPTURE);
  useScripted(pcm);
  ASSERT_EQ(snd_pcm_start(pcm.pcm()), 0);
  pcm.setState(SND_PCM_STATE_XRUN);
  gScript = {700, -EPIPE};
  CaptureStderr();
  EXPECT_EQ(pcm_read(ep), 2048u);
  EXPECT_THAT(GetCapturedStderr(), ContainsRegex("^overrun!!! \\(at least [0-9]+\\.[0-9][0-9][0-9] ms long\\)\n$"));
  EXPECT_EQ(pcm.state(), SND_PCM_STATE_PREPARED);
  EXPECT_TRUE(chunkIsFramesFrom(ep, 0));
}

TEST_F(CaptureRead, DrainingCaptureIsPreparedAgain) {
  ScriptedPcm pcm("hw:0,3", SND_PCM_STREAM_CAPTURE);
  useScripted(pcm);
  pcm.setState(SND_PCM_STATE_DRAINING);
  gScript = {-EPIPE};
  CaptureStderr();
  EXPECT_EQ(pcm_read(ep), 2048u);
  EXPECT_EQ(GetCapturedStderr(), "capture stream format change? attempting recover...\n");
  EXPECT_EQ(pcm.state(), SND_PCM_STATE_PREPARED);
}

TEST_F(CaptureRead, StopEndsTheReadEarlyAndTheChunkKeepsItsLength) {
  gScript = {300};
  readiFunc = [](snd_pcm_t *pcm, void *buf, snd_pcm_uframes_t n) {
    snd_pcm_sframes_t r = scriptedReadi(pcm, buf, n);
    gEndpoints[EP_DIGITMIC].stop = 1;
    return r;
  };
  EXPECT_EQ(pcm_read(ep), 300u);
  EXPECT_EQ(gRequests.size(), 1u);
  EXPECT_EQ(ep->chunk_bytes, 32768);
}

using CaptureReadDeathTest = CaptureRead;

TEST_F(CaptureReadDeathTest, BrokenPipeOutsideAnOverrunEndsTheProcess) {
  gScript = {-EPIPE};
  EXPECT_EXIT(pcm_read(ep), ::testing::ExitedWithCode(1), "^: xrun:[0-9]+: read/write error, state = PREPARED\n$");
}

TEST_F(CaptureReadDeathTest, SuspendThatCannotBeRestartedEndsTheProcess) {
  ScriptedPcm pcm("hw:0,3", SND_PCM_STREAM_CAPTURE);
  useScripted(pcm);
  snd_pcm_hw_free(pcm.pcm());  // a PCM without a configuration refuses resume and prepare
  gScript = {-ESTRPIPE};
  EXPECT_EXIT(pcm_read(ep), ::testing::ExitedWithCode(1),
              "Failed. Restarting stream. : suspend:[0-9]+: suspend: prepare error: ");
}
