// PCM negotiation: the sizes the endpoints end up with, the progress lines,
// and the fatal and non-fatal complaints about devices that do not fit.
#include <gmock/gmock.h>

#include "aplay/pcm_config.h"
#include "endpoint_fixture.h"
#include "scripted_pcm.h"

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

namespace {

struct SwSettings {
  snd_pcm_uframes_t availMin = 0, start = 0, stop = 0;
};

SwSettings swSettings(snd_pcm_t *pcm) {
  snd_pcm_sw_params_t *sw;
  snd_pcm_sw_params_alloca(&sw);
  snd_pcm_sw_params_current(pcm, sw);
  SwSettings s;
  snd_pcm_sw_params_get_avail_min(sw, &s.availMin);
  snd_pcm_sw_params_get_start_threshold(sw, &s.start);
  snd_pcm_sw_params_get_stop_threshold(sw, &s.stop);
  return s;
}

// An endpoint record as init leaves it, on a scripted PCM.
AudioEndpoint *scriptedEndpoint(uint32_t type, ScriptedPcm &pcm, uint32_t channels) {
  AudioEndpoint *ep = velquare_audioprocess_endpoint(type);
  ep->type = type;
  ep->pcm = pcm.pcm();
  ep->channels = channels;
  ep->stream = SND_PCM_STREAM_CAPTURE;
  ep->interleaved = 1;
  ep->format = SND_PCM_FORMAT_S16_LE;
  ep->rate = AUDIOPROCESS_RATE;
  ep->chunk_size = 256;
  startDelay = 1;
  return ep;
}

}  // namespace

class PcmSetup : public AudioTest {
 protected:
  void TearDown() override {
    for (AudioEndpoint &ep : gEndpoints)
      if (scripted_ && ep.pcm == scripted_) ep.pcm = nullptr;  // closed by its owner
    AudioTest::TearDown();
  }
  snd_pcm_t *scripted_ = nullptr;
};

TEST_F(PcmSetup, DigitalMicsGetPeriod2048OfBuffer8192AndSixteenBytesPerFrame) {
  CaptureStdout();
  ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC), 0);
  AudioEndpoint *ep = &gEndpoints[EP_DIGITMIC];
  ep->dumpHwParams = 1;
  CaptureStderr();
  set_params(ep);
  std::string err = GetCapturedStderr();
  std::string out = GetCapturedStdout();
  EXPECT_THAT(out, HasSubstr("-----> buffer_time : 0, buffer_frames : 8192\n"
                             "-----> period_time : 0, period_frames : 2048\n"
                             "-----> pchunk_size : 2048, buffer_size : 8192\n"));
  EXPECT_EQ(err, "HW Params of device \"hw:0,3\":\n--------------------\n--------------------\n");
  EXPECT_EQ(ep->rate, 48000u);
  EXPECT_EQ(ep->chunk_size, 2048u);
  EXPECT_EQ(ep->periodFrames, 2048u);
  EXPECT_EQ(ep->bufferFrames, 8192u);
  EXPECT_EQ(ep->bits_per_sample, 16);
  EXPECT_EQ(ep->significant_bits_per_sample, 16);
  EXPECT_EQ(ep->bits_per_frame, 128);
  EXPECT_EQ(ep->chunk_bytes, 16 * 2048);
  SwSettings sw = swSettings(ep->pcm);
  EXPECT_EQ(sw.availMin, 2048u);
  EXPECT_EQ(sw.start, 1u);  // a start delay of 1 us: the first read starts the stream
  EXPECT_EQ(sw.stop, 8192u);
  EXPECT_EQ(snd_pcm_state(ep->pcm), SND_PCM_STATE_PREPARED);
}

TEST_F(PcmSetup, LineInGetsPeriod1024OfBuffer4096AndFourBytesPerFrame) {
  CaptureStdout();
  ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_LINEIN), 0);
  AudioEndpoint *ep = &gEndpoints[EP_LINEIN];
  CaptureStderr();
  set_params(ep);
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_THAT(GetCapturedStdout(), HasSubstr("-----> pchunk_size : 1024, buffer_size : 4096\n"));
  EXPECT_EQ(ep->chunk_size, 1024u);
  EXPECT_EQ(ep->bufferFrames, 4096u);
  EXPECT_EQ(ep->bits_per_frame, 32);
  EXPECT_EQ(ep->chunk_bytes, 4096);
  EXPECT_EQ(swSettings(ep->pcm).stop, 4096u);
}

TEST_F(PcmSetup, RateFarFromTheRequestIsReportedWithAPlugHintOnlyForPlainNames) {
  ScriptedLimits limits;
  limits.rate = 44100;  // 8% below 48000
  for (const char *name : {"hw:0,3", "array"}) {
    ScriptedPcm pcm(name, SND_PCM_STREAM_CAPTURE, limits);
    scripted_ = pcm.pcm();
    AudioEndpoint *ep = scriptedEndpoint(AUDIOPROCESS_DIGITMIC, pcm, 8);
    CaptureStdout();
    CaptureStderr();
    set_params(ep);
    std::string err = GetCapturedStderr();
    GetCapturedStdout();
    std::string hint = std::string(name) == "array" ? "(-Dplug:array)" : "";
    EXPECT_EQ(err, "Warning: rate is not accurate (requested = 48000Hz, got = 44100Hz)\n"
                   "         please, try the plug plugin " + hint + "\n");
    EXPECT_EQ(ep->rate, 44100u);
    ep->pcm = nullptr;
  }
  limits.rate = 47000;  // within 5%: no warning
  ScriptedPcm near("hw:0,3", SND_PCM_STREAM_CAPTURE, limits);
  scripted_ = near.pcm();
  AudioEndpoint *ep = scriptedEndpoint(AUDIOPROCESS_DIGITMIC, near, 8);
  CaptureStdout();
  CaptureStderr();
  set_params(ep);
  EXPECT_EQ(GetCapturedStderr(), "");
  GetCapturedStdout();
}

using PcmSetupDeathTest = PcmSetup;

TEST_F(PcmSetupDeathTest, PeriodEqualToBufferEndsTheProcess) {
  ScriptedLimits limits;
  limits.periodsMin = limits.periodsMax = 1;
  ScriptedPcm pcm("hw:0,3", SND_PCM_STREAM_CAPTURE, limits);
  scripted_ = pcm.pcm();
  AudioEndpoint *ep = scriptedEndpoint(AUDIOPROCESS_DIGITMIC, pcm, 8);
  EXPECT_EXIT(set_params(ep), ::testing::ExitedWithCode(1),
              ": set_params:[0-9]+: Can't use period equal to buffer size \\(2048 == 2048\\)\n");
}

TEST_F(PcmSetupDeathTest, ChannelCountTheDeviceLacksEndsTheProcess) {
  ScriptedLimits limits;
  limits.channelsMax = 2;
  ScriptedPcm pcm("hw:0,3", SND_PCM_STREAM_CAPTURE, limits);
  scripted_ = pcm.pcm();
  AudioEndpoint *ep = scriptedEndpoint(AUDIOPROCESS_DIGITMIC, pcm, 8);
  EXPECT_EXIT(set_params(ep), ::testing::ExitedWithCode(1), ": set_params:[0-9]+: Channels count non available\n");
}

TEST_F(PcmSetupDeathTest, RefusedSampleFormatListsTheAcceptedOnesAndEndsTheProcess) {
  ScriptedPcm pcm("hw:0,3", SND_PCM_STREAM_CAPTURE);
  scripted_ = pcm.pcm();
  AudioEndpoint *ep = scriptedEndpoint(AUDIOPROCESS_DIGITMIC, pcm, 8);
  ep->format = SND_PCM_FORMAT_S32_LE;
  EXPECT_EXIT(set_params(ep), ::testing::ExitedWithCode(1),
              ": set_params:[0-9]+: Sample format non available\nAvailable formats:\n- S16_LE\n$");
}
