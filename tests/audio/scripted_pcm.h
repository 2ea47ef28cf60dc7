// A capture or playback PCM made with libasound's I/O plugin interface, for
// the states and limits the sandbox's file/null PCMs never reach: a test can
// put it into XRUN or DRAINING and restrict its rate, channels or periods.
// Everything above the plugin (negotiation, status, prepare, resume, state
// names) is the real library. (The library ignores what an I/O plugin's
// resume returns, so a resume that fails or asks to wait cannot be staged.)
#pragma once
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <string>

struct ScriptedLimits {
  unsigned rate = 48000;
  unsigned channelsMin = 1, channelsMax = 8;
  unsigned periodsMin = 2, periodsMax = 64;
};

class ScriptedPcm {
 public:
  ScriptedPcm(const std::string &name, snd_pcm_stream_t stream, const ScriptedLimits &limits = {});
  ~ScriptedPcm();
  ScriptedPcm(const ScriptedPcm &) = delete;
  ScriptedPcm &operator=(const ScriptedPcm &) = delete;

  snd_pcm_t *pcm() const { return io_.pcm; }
  void setState(snd_pcm_state_t state) { snd_pcm_ioplug_set_state(&io_, state); }
  snd_pcm_state_t state() const { return snd_pcm_state(io_.pcm); }

 private:
  snd_pcm_ioplug_t io_{};
  snd_pcm_ioplug_callback_t callbacks_{};
  std::string name_;
  int pollPipe_[2] = {-1, -1};
};
