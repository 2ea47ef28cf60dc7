// Bringing endpoints up and down by mask: which ones, in which order, with
// which devices, and how a missing device stops the initialisation.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "endpoint_fixture.h"

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

namespace {

// The endpoint names of the lines "-->func N: <verb> AUDIOPROCESS_<name>...", in order.
std::vector<std::string> namesIn(const std::string &out, const std::string &verb) {
  std::vector<std::string> names;
  const std::string key = ": " + verb + " AUDIOPROCESS_";
  for (size_t pos = out.find(key); pos != std::string::npos; pos = out.find(key, pos + 1)) {
    size_t start = pos + key.size();
    names.push_back(out.substr(start, out.find_first_of(" \n", start) - start));
  }
  return names;
}

using Names = std::vector<std::string>;

}  // namespace

using Endpoints = AudioTest;

TEST_F(Endpoints, DaemonMaskBringsUpDigitalMicThenLineInWithTheirLayouts) {
  CaptureStdout();
  EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), 0);
  std::string out = GetCapturedStdout();
  EXPECT_EQ(namesIn(out, "init"), (Names{"DIGITMIC", "LINEIN"}));
  EXPECT_THAT(out, HasSubstr("-->velquare_audioprocess_init "));
  EXPECT_EQ(startDelay, 1);

  const AudioEndpoint &mic = gEndpoints[EP_DIGITMIC];
  const AudioEndpoint &line = gEndpoints[EP_LINEIN];
  ASSERT_NE(mic.pcm, nullptr);
  ASSERT_NE(line.pcm, nullptr);
  EXPECT_STREQ(snd_pcm_name(mic.pcm), "hw:0,3");
  EXPECT_STREQ(snd_pcm_name(line.pcm), "hw:0,2");
  EXPECT_EQ(snd_pcm_stream(line.pcm), SND_PCM_STREAM_CAPTURE);
  EXPECT_EQ(mic.type, AUDIOPROCESS_DIGITMIC);
  EXPECT_EQ(mic.channels, 8u);
  EXPECT_EQ(line.channels, 2u);
  for (const AudioEndpoint *ep : {&mic, &line}) {
    EXPECT_EQ(ep->active, 1);
    EXPECT_EQ(ep->stream, uint32_t(SND_PCM_STREAM_CAPTURE));
    EXPECT_EQ(ep->chunk_size, 256u);
    EXPECT_EQ(ep->rate, 48000u);
    EXPECT_EQ(ep->interleaved, 1);
    EXPECT_EQ(ep->format, SND_PCM_FORMAT_S16_LE);
    EXPECT_NE(ep->audiobuf, nullptr);
    EXPECT_NE(ep->info, nullptr);
  }
  for (const AudioEndpoint *ep : {&gEndpoints[EP_ANALOGMIC], &gEndpoints[EP_LINEOUT]}) {
    EXPECT_EQ(ep->pcm, nullptr);
    EXPECT_EQ(ep->active, 0);
  }
}

TEST_F(Endpoints, AllFourComeUpInTypeOrderAndTheLineOpensOncePerDirection) {
  CaptureStdout();
  EXPECT_EQ(velquare_audioprocess_init(15), 0);
  EXPECT_EQ(namesIn(GetCapturedStdout(), "init"), (Names{"LINEOUT", "DIGITMIC", "ANALOGMIC", "LINEIN"}));
  const AudioEndpoint &out = gEndpoints[EP_LINEOUT];
  const AudioEndpoint &in = gEndpoints[EP_LINEIN];
  ASSERT_NE(out.pcm, nullptr);
  ASSERT_NE(in.pcm, nullptr);
  EXPECT_STREQ(snd_pcm_name(out.pcm), "hw:0,2");
  EXPECT_EQ(snd_pcm_stream(out.pcm), SND_PCM_STREAM_PLAYBACK);
  EXPECT_EQ(out.stream, uint32_t(SND_PCM_STREAM_PLAYBACK));
  EXPECT_EQ(out.channels, 4u);
  EXPECT_STREQ(snd_pcm_name(gEndpoints[EP_ANALOGMIC].pcm), "hw:0,1");
  EXPECT_EQ(gEndpoints[EP_ANALOGMIC].channels, 8u);
}

TEST_F(Endpoints, MaskNamingNoEndpointReturnsOneAndTouchesNothing) {
  for (int mask : {0, 16, 32 | 64}) {
    CaptureStdout();
    EXPECT_EQ(velquare_audioprocess_init(mask), 1) << mask;
    EXPECT_EQ(GetCapturedStdout(), "") << mask;
    for (const AudioEndpoint &ep : gEndpoints) EXPECT_EQ(ep.pcm, nullptr);
  }
}

TEST_F(Endpoints, MissingMicrophoneDeviceFailsBeforeTheLineInIsTouched) {
  alsa.removeDevice(3);
  CaptureStdout();
  CaptureStderr();
  EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), -1);
  std::string err = GetCapturedStderr();
  EXPECT_EQ(namesIn(GetCapturedStdout(), "init"), (Names{"DIGITMIC"}));
  EXPECT_THAT(err, HasSubstr(": velquare_audioprocess_init:"));
  EXPECT_THAT(err, HasSubstr("snd_pcm_open error: No such file or directory\n"));
  EXPECT_EQ(gEndpoints[EP_DIGITMIC].pcm, nullptr);
  EXPECT_EQ(gEndpoints[EP_DIGITMIC].active, 0);
  EXPECT_EQ(gEndpoints[EP_LINEIN].channels, 0u);
}

TEST_F(Endpoints, FailureLeavesEndpointsOpenedEarlierInTheCallOpen) {
  alsa.removeDevice(2);
  CaptureStderr();
  CaptureStdout();
  EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), -1);
  GetCapturedStdout();
  GetCapturedStderr();
  EXPECT_NE(gEndpoints[EP_DIGITMIC].pcm, nullptr);
  EXPECT_EQ(gEndpoints[EP_DIGITMIC].active, 1);
  EXPECT_EQ(gEndpoints[EP_LINEIN].pcm, nullptr);
}

TEST_F(Endpoints, StartGoesInTypeOrderAndWorkersRefuseRecordsNeverInitialised) {
  // Records without a type: every worker is the capture worker and stops at once.
  CaptureStdout();
  EXPECT_EQ(velquare_audioprocess_proc_start(15), 0);
  usleep(200000);
  std::string out = GetCapturedStdout();
  EXPECT_EQ(namesIn(out, "start"), (Names{"LINEOUT", "DIGITMIC", "ANALOGMIC", "LINEIN"}));
  EXPECT_THAT(out, HasSubstr("-->velquare_audioprocess_proc_start "));
  size_t refusals = 0;
  for (size_t p = out.find("unkown type, create audioprocess err\n"); p != std::string::npos;
       p = out.find("unkown type", p + 1))
    refusals++;
  EXPECT_EQ(refusals, 4u);
}

TEST_F(Endpoints, TeardownReleasesEveryEndpointOfTheMaskInTypeOrder) {
  CaptureStdout();
  ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), 0);
  EXPECT_EQ(velquare_audioprocess_uninit(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), 0);
  EXPECT_EQ(namesIn(GetCapturedStdout(), "uinit"), (Names{"DIGITMIC", "LINEIN"}));
  for (const AudioEndpoint *ep : {&gEndpoints[EP_DIGITMIC], &gEndpoints[EP_LINEIN]}) {
    EXPECT_EQ(ep->active, 0);
    EXPECT_EQ(ep->pcm, nullptr);
    EXPECT_EQ(ep->audiobuf, nullptr);
    EXPECT_EQ(ep->pool.data, nullptr);
    EXPECT_EQ(ep->pool.created, 0);
  }
}

TEST_F(Endpoints, LineOutWorkerConfiguresItsPcmAndDrainsItAtTeardown) {
  CaptureStdout();
  ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_LINEOUT), 0);
  velquare_audioprocess_proc_start(AUDIOPROCESS_LINEOUT);
  AudioEndpoint &out = gEndpoints[EP_LINEOUT];
  for (int i = 0; i < 200 && snd_pcm_state(out.pcm) != SND_PCM_STATE_PREPARED; i++) usleep(5000);
  EXPECT_EQ(snd_pcm_state(out.pcm), SND_PCM_STATE_PREPARED);
  velquare_audioprocess_uninit(AUDIOPROCESS_LINEOUT);
  std::string text = GetCapturedStdout();
  EXPECT_THAT(text, HasSubstr("-----> pchunk_size : 1024, buffer_size : 4096\n"));
  EXPECT_EQ(namesIn(text, "uinit"), (Names{"LINEOUT"}));
  EXPECT_EQ(out.chunk_bytes, 1024 * 8);
  EXPECT_EQ(out.pcm, nullptr);
}
