// Bringing endpoints up and down by mask: which ones, in which order, with
// which devices, and how a missing device stops the initialisation.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "endpoint_fixture.h"
#include "support/eventually.h"
#include "support/output_capture.h"

using Names = std::vector<std::string>;

namespace {

// The endpoint names of the lines "-->func N: <verb> AUDIOPROCESS_<name>...", in order.
Names namesIn(const std::string &out, const std::string &verb) {
  Names names;
  const std::string key = ": " + verb + " AUDIOPROCESS_";
  for (size_t pos = out.find(key); pos != std::string::npos; pos = out.find(key, pos + 1)) {
    size_t start = pos + key.size();
    names.push_back(out.substr(start, out.find_first_of(" \n", start) - start));
  }
  return names;
}

void expectDevice(AudioEndpointIndex index, const char *name, snd_pcm_stream_t stream, uint32_t channels) {
  const AudioEndpoint &ep = gEndpoints[index];
  ASSERT_NE(ep.pcm, nullptr) << name;
  EXPECT_STREQ(snd_pcm_name(ep.pcm), name);
  EXPECT_EQ(snd_pcm_stream(ep.pcm), stream) << name;
  EXPECT_EQ(ep.stream, uint32_t(stream)) << name;
  EXPECT_EQ(ep.channels, channels) << name;
  EXPECT_EQ(ep.active, 1) << name;
  EXPECT_TRUE(ep.audiobuf && ep.info) << name;
}

}  // namespace

using Endpoints = AudioTest;

TEST_F(Endpoints, MaskBringsUpAndDownItsEndpointsInTypeOrderOnTheirDevices) {
  std::string out = stdoutOf([] { EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), 0); });
  EXPECT_EQ(namesIn(out, "init"), (Names{"DIGITMIC", "LINEIN"}));
  EXPECT_EQ(startDelay, 1);
  expectDevice(EP_DIGITMIC, "hw:0,3", SND_PCM_STREAM_CAPTURE, 8);
  expectDevice(EP_LINEIN, "hw:0,2", SND_PCM_STREAM_CAPTURE, 2);
  EXPECT_EQ(gEndpoints[EP_DIGITMIC].type, AUDIOPROCESS_DIGITMIC);
  for (AudioEndpointIndex index : {EP_ANALOGMIC, EP_LINEOUT}) EXPECT_EQ(gEndpoints[index].pcm, nullptr);

  stdoutOf([] { EXPECT_EQ(velquare_audioprocess_uninit(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), 0); });
  for (const AudioEndpoint *ep : {&gEndpoints[EP_DIGITMIC], &gEndpoints[EP_LINEIN]})
    EXPECT_TRUE(!ep->active && !ep->pcm && !ep->audiobuf && !ep->pool.data && !ep->pool.created);

  // All four: the line opens once per direction.
  out = stdoutOf([] { EXPECT_EQ(velquare_audioprocess_init(15), 0); });
  EXPECT_EQ(namesIn(out, "init"), (Names{"LINEOUT", "DIGITMIC", "ANALOGMIC", "LINEIN"}));
  expectDevice(EP_LINEOUT, "hw:0,2", SND_PCM_STREAM_PLAYBACK, 4);
  expectDevice(EP_ANALOGMIC, "hw:0,1", SND_PCM_STREAM_CAPTURE, 8);
  expectDevice(EP_LINEIN, "hw:0,2", SND_PCM_STREAM_CAPTURE, 2);
}

TEST_F(Endpoints, MissingDeviceStopsTheInitAndLeavesEarlierEndpointsOpen) {
  alsa.removeDevice(3);
  std::string err, out = stdoutOf([&] {
    err = stderrOf([] { EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), -1); });
  });
  EXPECT_EQ(namesIn(out, "init"), Names{"DIGITMIC"});  // the line-in is never touched
  EXPECT_THAT(err, testing::ContainsRegex(": velquare_audioprocess_init:.*snd_pcm_open error: No such file or directory\n"));
  EXPECT_EQ(gEndpoints[EP_DIGITMIC].pcm, nullptr);
  EXPECT_EQ(gEndpoints[EP_DIGITMIC].active, 0);
  EXPECT_EQ(gEndpoints[EP_LINEIN].channels, 0u);

  releaseEndpoints();
  alsa.setCaptureData(3, "");
  alsa.removeDevice(2);
  stdoutOf([] { stderrOf([] { EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), -1); }); });
  EXPECT_NE(gEndpoints[EP_DIGITMIC].pcm, nullptr);
  EXPECT_EQ(gEndpoints[EP_DIGITMIC].active, 1);
  EXPECT_EQ(gEndpoints[EP_LINEIN].pcm, nullptr);
}

TEST_F(Endpoints, LineOutWorkerConfiguresItsPcmAndDrainsItAtTeardown) {
  AudioEndpoint &out = gEndpoints[EP_LINEOUT];
  stdoutOf([&] {
    ASSERT_EQ(velquare_audioprocess_init(AUDIOPROCESS_LINEOUT), 0);
    velquare_audioprocess_proc_start(AUDIOPROCESS_LINEOUT);
    EXPECT_TRUE(eventually([&] { return snd_pcm_state(out.pcm) == SND_PCM_STATE_PREPARED; }));
    velquare_audioprocess_uninit(AUDIOPROCESS_LINEOUT);
  });
  EXPECT_EQ(out.chunk_bytes, 1024 * 8);
  EXPECT_EQ(out.pcm, nullptr);
}
