// The sandbox's ALSA configuration: the board's device names open libasound's
// own plugins, grant the board's parameters and deliver the fed bytes.
#include "support/alsa_sandbox.h"

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "feed.h"

namespace {

struct Granted {
  unsigned rate = 0;
  snd_pcm_uframes_t period = 0, buffer = 0;
};

Granted configure(snd_pcm_t *pcm, unsigned channels, snd_pcm_uframes_t period, snd_pcm_uframes_t buffer) {
  snd_pcm_hw_params_t *hw;
  snd_pcm_hw_params_alloca(&hw);
  snd_pcm_hw_params_any(pcm, hw);
  snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED);
  snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE);
  snd_pcm_hw_params_set_channels(pcm, hw, channels);
  Granted g;
  g.rate = 48000;
  snd_pcm_hw_params_set_rate_near(pcm, hw, &g.rate, nullptr);
  snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, nullptr);
  snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &buffer);
  EXPECT_EQ(snd_pcm_hw_params(pcm, hw), 0);
  snd_pcm_hw_params_get_period_size(hw, &g.period, nullptr);
  snd_pcm_hw_params_get_buffer_size(hw, &g.buffer);
  return g;
}

std::string ramp(size_t bytes) {
  std::string s(bytes, '\0');
  for (size_t i = 0; i < bytes; i++) s[i] = char(i * 7 + i / 251);
  return s;
}

}  // namespace

TEST(AlsaSandbox, BoardDeviceNamesOpenWithTheBoardsParametersAndReadTheFile) {
  Sandbox box;
  AlsaSandbox alsa(box);
  const size_t periodBytes = 2048 * 16;
  std::string data = ramp(periodBytes + 1024);
  alsa.setCaptureData(3, data);

  snd_pcm_t *pcm = nullptr;
  ASSERT_EQ(snd_pcm_open(&pcm, "hw:0,3", SND_PCM_STREAM_CAPTURE, 0), 0);
  Granted g = configure(pcm, 8, 2048, 8192);
  EXPECT_EQ(g.rate, 48000u);
  EXPECT_EQ(g.period, 2048u);
  EXPECT_EQ(g.buffer, 8192u);
  std::vector<char> buf(periodBytes);
  ASSERT_EQ(snd_pcm_readi(pcm, buf.data(), 2048), 2048);
  EXPECT_TRUE(std::string(buf.data(), periodBytes) == data.substr(0, periodBytes));
  // A short read still completes the period; only its head is new data.
  ASSERT_EQ(snd_pcm_readi(pcm, buf.data(), 2048), 2048);
  EXPECT_TRUE(std::string(buf.data(), 1024) == data.substr(periodBytes));
  snd_pcm_close(pcm);

  // The line shares one device for capture and playback.
  snd_pcm_t *in = nullptr, *out = nullptr;
  ASSERT_EQ(snd_pcm_open(&in, "hw:0,2", SND_PCM_STREAM_CAPTURE, 0), 0);
  ASSERT_EQ(snd_pcm_open(&out, "hw:0,2", SND_PCM_STREAM_PLAYBACK, 0), 0);
  g = configure(in, 2, 1024, 4096);
  EXPECT_EQ(g.period, 1024u);
  EXPECT_EQ(g.buffer, 4096u);
  snd_pcm_close(in);
  snd_pcm_close(out);
}

TEST(AlsaSandbox, RemovedDeviceFailsToOpenForCapture) {
  Sandbox box;
  AlsaSandbox alsa(box);
  alsa.removeDevice(3);
  snd_pcm_t *pcm = nullptr;
  EXPECT_LT(snd_pcm_open(&pcm, "hw:0,3", SND_PCM_STREAM_CAPTURE, 0), 0);
  ASSERT_EQ(snd_pcm_open(&pcm, "hw:0,2", SND_PCM_STREAM_CAPTURE, 0), 0);
  snd_pcm_close(pcm);
}

TEST(AlsaSandbox, FifoDeliversEveryFedPeriodInOrder) {
  Sandbox box;
  AlsaSandbox alsa(box);
  std::string fifo = alsa.makeCaptureFifo(2);
  const unsigned periods = 6;
  std::string data = ramp(1024 * 4 * periods);
  std::vector<uint8_t> bytes(data.begin(), data.end());
  FeedOptions options;
  options.speed = 0;  // as fast as read: the FIFO itself keeps the two sides in step
  options.periodFrames = 1024;
  std::thread feeder([&] { feedFifo(fifo, bytes, 2, options); });

  snd_pcm_t *pcm = nullptr;
  ASSERT_EQ(snd_pcm_open(&pcm, "hw:0,2", SND_PCM_STREAM_CAPTURE, 0), 0);
  configure(pcm, 2, 1024, 4096);
  std::string got;
  std::vector<char> buf(4096);
  for (unsigned i = 0; i < periods; i++) {
    ASSERT_EQ(snd_pcm_readi(pcm, buf.data(), 1024), 1024);
    got.append(buf.data(), buf.size());
  }
  feeder.join();
  snd_pcm_close(pcm);
  EXPECT_TRUE(got == data);
}
