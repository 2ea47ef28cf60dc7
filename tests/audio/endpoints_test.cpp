// Bringing endpoints up and down by mask: which ones, in which order, with
// which devices, how a missing device stops the initialisation, and the PCM
// sizes they negotiate.
#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

#include "aplay/pcm_config.h"
#include "endpoint_fixture.h"
#include "support/output_capture.h"
#include "support/scripted_pcm.h"

using Names = std::vector<std::string>;

namespace {

constexpr int kMicAndLine = AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN;

// The endpoint names of the lines "-->func N: init AUDIOPROCESS_<name>...", in order.
Names initNames(const std::string &out) {
  Names names;
  const std::string key = ": init AUDIOPROCESS_";
  for (size_t pos = out.find(key); pos != std::string::npos; pos = out.find(key, pos + 1)) {
    size_t start = pos + key.size();
    names.push_back(out.substr(start, out.find_first_of(" \n", start) - start));
  }
  return names;
}

}  // namespace

using Endpoints = AudioTest;

TEST_F(Endpoints, MaskBringsUpAndDownItsEndpointsInTypeOrderOnTheirDevices) {
  std::string out = stdoutOf([] { EXPECT_EQ(velquare_audioprocess_init(kMicAndLine), 0); });
  EXPECT_EQ(initNames(out), (Names{"DIGITMIC", "LINEIN"}));
  stdoutOf([] { EXPECT_EQ(velquare_audioprocess_uninit(kMicAndLine), 0); });
  for (const AudioEndpoint *ep : {&gEndpoints[EP_DIGITMIC], &gEndpoints[EP_LINEIN]})
    EXPECT_TRUE(!ep->active && !ep->pcm && !ep->audiobuf && !ep->pool.data && !ep->pool.created);

  // All four: the line opens once per direction.
  out = stdoutOf([] { EXPECT_EQ(velquare_audioprocess_init(15), 0); });
  EXPECT_EQ(initNames(out), (Names{"LINEOUT", "DIGITMIC", "ANALOGMIC", "LINEIN"}));
  const std::tuple<AudioEndpointIndex, const char *, snd_pcm_stream_t, uint32_t> devices[] = {
      {EP_DIGITMIC, "hw:0,3", SND_PCM_STREAM_CAPTURE, 8},
      {EP_LINEIN, "hw:0,2", SND_PCM_STREAM_CAPTURE, 2},
      {EP_LINEOUT, "hw:0,2", SND_PCM_STREAM_PLAYBACK, 4},
      {EP_ANALOGMIC, "hw:0,1", SND_PCM_STREAM_CAPTURE, 8}};
  for (const auto &[index, name, stream, channels] : devices) {
    const AudioEndpoint &ep = gEndpoints[index];
    ASSERT_NE(ep.pcm, nullptr) << name;
    EXPECT_STREQ(snd_pcm_name(ep.pcm), name);
    EXPECT_TRUE(snd_pcm_stream(ep.pcm) == stream && ep.stream == uint32_t(stream)) << name;
    EXPECT_TRUE(ep.channels == channels && ep.active == 1 && ep.audiobuf && ep.info) << name;
  }
}

TEST_F(Endpoints, MissingDeviceStopsTheInitAndLeavesEarlierEndpointsOpen) {
  for (int missing : {3, 2}) {
    alsa.setCaptureData(5 - missing, "");
    alsa.removeDevice(missing);
    const auto init = [] { EXPECT_EQ(velquare_audioprocess_init(kMicAndLine), -1); };
    std::string err, out = stdoutOf([&] { err = stderrOf(init); });
    EXPECT_EQ(initNames(out).size(), missing == 3 ? 1u : 2u);  // no microphones, no line-in
    EXPECT_THAT(err, testing::HasSubstr("snd_pcm_open error: No such file or directory\n"));
    EXPECT_EQ(gEndpoints[EP_DIGITMIC].active, int(missing == 2));  // the microphones come first
    EXPECT_EQ(gEndpoints[EP_LINEIN].pcm, nullptr);
    releaseEndpoints();
  }
}

// (The line-in's sizes are in its console lines, checked with the log.)
TEST_F(Endpoints, MicrophonesGetTheBoardsSizesAndStartOnTheFirstRead) {
  AudioEndpoint *ep = &gEndpoints[EP_DIGITMIC];
  stdoutOf([&] {
    ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC), 0);
    EXPECT_EQ(stderrOf([&] { set_params(ep); }), "");
  });
  EXPECT_EQ(ep->chunk_size, 2048u);
  EXPECT_EQ(ep->bufferFrames, 8192u);
  EXPECT_EQ(ep->chunk_bytes, 2048 * 16);
  snd_pcm_sw_params_t *sw;
  snd_pcm_sw_params_alloca(&sw);
  snd_pcm_sw_params_current(ep->pcm, sw);
  snd_pcm_uframes_t start = 0;
  snd_pcm_sw_params_get_start_threshold(sw, &start);
  EXPECT_EQ(start, 1u);  // a start delay of 1 us: the first read starts the stream
  EXPECT_EQ(snd_pcm_state(ep->pcm), SND_PCM_STATE_PREPARED);
}

using EndpointsDeathTest = AudioTest;

TEST_F(EndpointsDeathTest, PeriodEqualToBufferEndsTheProcess) {
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
