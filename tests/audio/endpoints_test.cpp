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
  std::string out = stdoutOf([] { EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), 0); });
  EXPECT_EQ(initNames(out), (Names{"DIGITMIC", "LINEIN"}));
  EXPECT_EQ(gEndpoints[EP_ANALOGMIC].pcm, nullptr);
  stdoutOf([] { EXPECT_EQ(velquare_audioprocess_uninit(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), 0); });
  for (const AudioEndpoint *ep : {&gEndpoints[EP_DIGITMIC], &gEndpoints[EP_LINEIN]})
    EXPECT_TRUE(!ep->active && !ep->pcm && !ep->audiobuf && !ep->pool.data && !ep->pool.created);

  // All four: the line opens once per direction.
  out = stdoutOf([] { EXPECT_EQ(velquare_audioprocess_init(15), 0); });
  EXPECT_EQ(initNames(out), (Names{"LINEOUT", "DIGITMIC", "ANALOGMIC", "LINEIN"}));
  const struct {
    AudioEndpointIndex index;
    const char *name;
    snd_pcm_stream_t stream;
    uint32_t channels;
  } devices[] = {{EP_DIGITMIC, "hw:0,3", SND_PCM_STREAM_CAPTURE, 8}, {EP_LINEIN, "hw:0,2", SND_PCM_STREAM_CAPTURE, 2},
                 {EP_LINEOUT, "hw:0,2", SND_PCM_STREAM_PLAYBACK, 4}, {EP_ANALOGMIC, "hw:0,1", SND_PCM_STREAM_CAPTURE, 8}};
  for (const auto &d : devices) {
    const AudioEndpoint &ep = gEndpoints[d.index];
    ASSERT_NE(ep.pcm, nullptr) << d.name;
    EXPECT_STREQ(snd_pcm_name(ep.pcm), d.name);
    EXPECT_TRUE(snd_pcm_stream(ep.pcm) == d.stream && ep.stream == uint32_t(d.stream)) << d.name;
    EXPECT_TRUE(ep.channels == d.channels && ep.active == 1 && ep.audiobuf && ep.info) << d.name;
  }
}

TEST_F(Endpoints, MissingDeviceStopsTheInitAndLeavesEarlierEndpointsOpen) {
  for (int missing : {3, 2}) {
    alsa.setCaptureData(5 - missing, "");
    alsa.removeDevice(missing);
    std::string err, out = stdoutOf([&] {
      err = stderrOf([] { EXPECT_EQ(velquare_audioprocess_init(AUDIOPROCESS_DIGITMIC | AUDIOPROCESS_LINEIN), -1); });
    });
    EXPECT_EQ(initNames(out).size(), missing == 3 ? 1u : 2u);  // without the microphones, no line-in
    EXPECT_THAT(err, testing::ContainsRegex(": velquare_audioprocess_init:.*snd_pcm_open error: No such file or directory\n"));
    EXPECT_EQ(gEndpoints[EP_DIGITMIC].active, int(missing == 2));  // the microphones come first
    EXPECT_EQ(gEndpoints[EP_LINEIN].pcm, nullptr);
    releaseEndpoints();
  }
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
