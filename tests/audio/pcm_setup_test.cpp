// PCM negotiation: the sizes the endpoints end up with, and the fatal and
// non-fatal complaints about devices that do not fit.
#include <gmock/gmock.h>

#include "aplay/pcm_config.h"
#include "endpoint_fixture.h"
#include "support/output_capture.h"
#include "support/scripted_pcm.h"

namespace {

struct Negotiated {
  uint32_t type;
  AudioEndpointIndex index;
  unsigned period, buffer, bitsPerFrame;
};

}  // namespace

class PcmSetup : public AudioTest, public testing::WithParamInterface<Negotiated> {};

TEST_P(PcmSetup, EndpointGetsTheBoardsPeriodAndBufferSizes) {
  const Negotiated &n = GetParam();
  AudioEndpoint *ep = &gEndpoints[n.index];
  stdoutOf([&] {
    ASSERT_EQ(velquare_audioprocess_init(n.type), 0);
    EXPECT_EQ(stderrOf([&] { set_params(ep); }), "");
  });
  EXPECT_EQ(ep->chunk_size, n.period);
  EXPECT_EQ(ep->bufferFrames, n.buffer);
  EXPECT_EQ(ep->chunk_bytes, int(n.period * n.bitsPerFrame / 8));
  snd_pcm_sw_params_t *sw;
  snd_pcm_sw_params_alloca(&sw);
  snd_pcm_sw_params_current(ep->pcm, sw);
  snd_pcm_uframes_t availMin = 0, start = 0, stop = 0;
  snd_pcm_sw_params_get_avail_min(sw, &availMin);
  snd_pcm_sw_params_get_start_threshold(sw, &start);
  snd_pcm_sw_params_get_stop_threshold(sw, &stop);
  EXPECT_EQ(availMin, n.period);
  EXPECT_EQ(start, 1u);  // a start delay of 1 us: the first read starts the stream
  EXPECT_EQ(stop, n.buffer);
  EXPECT_EQ(snd_pcm_state(ep->pcm), SND_PCM_STATE_PREPARED);
}

INSTANTIATE_TEST_SUITE_P(Board, PcmSetup,
                         testing::Values(Negotiated{AUDIOPROCESS_DIGITMIC, EP_DIGITMIC, 2048, 8192, 128},
                                         Negotiated{AUDIOPROCESS_LINEIN, EP_LINEIN, 1024, 4096, 32}),
                         [](const auto &info) { return std::string(info.param.period == 2048 ? "DigitMic" : "LineIn"); });

using PcmSetupDeathTest = AudioTest;

TEST_F(PcmSetupDeathTest, PeriodEqualToBufferEndsTheProcess) {
  ScriptedLimits limits;
  limits.periodsMin = limits.periodsMax = 1;
  ScriptedPcm pcm("hw:0,3", SND_PCM_STREAM_CAPTURE, limits);
  AudioEndpoint *ep = &gEndpoints[EP_DIGITMIC];
  stdoutOf([&] { ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC), 0); });
  snd_pcm_close(ep->pcm);
  ep->pcm = pcm.pcm();
  EXPECT_EXIT(set_params(ep), ::testing::ExitedWithCode(1),
              ": set_params:[0-9]+: Can't use period equal to buffer size \\(2048 == 2048\\)\n");
  ep->pcm = nullptr;  // closed by its owner
}
