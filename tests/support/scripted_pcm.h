// A capture or playback PCM made with libasound's I/O plugin interface, for
// the states and limits the sandbox's file/null PCMs never reach: a test can
// put it into XRUN or DRAINING and restrict its periods.
// Everything above the plugin (negotiation, status, prepare, resume, state
// names) is the real library. With announceClose it writes "pcm closed" to
// standard error when the library closes it. (The library ignores what an I/O plugin's
// resume returns, so a resume that fails or asks to wait cannot be staged.)
#pragma once
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

struct ScriptedLimits {
  unsigned periodsMin = 2, periodsMax = 64;
};

class ScriptedPcm {
 public:
  ScriptedPcm(const std::string &name, snd_pcm_stream_t stream, const ScriptedLimits &limits = {},
              bool announceClose = false)
      : name_(name) {
    // A descriptor that is always readable, so waits on this PCM return at once.
    if (pipe(pollPipe_) != 0 || write(pollPipe_[1], "x", 1) != 1) ADD_FAILURE() << "pipe";
    callbacks_.start = callbacks_.stop = [](snd_pcm_ioplug_t *) { return 0; };
    callbacks_.pointer = [](snd_pcm_ioplug_t *) -> snd_pcm_sframes_t { return 0; };
    if (announceClose)
      callbacks_.close = [](snd_pcm_ioplug_t *) {
        return fputs("pcm closed\n", stderr) < 0 ? -1 : 0;
      };
    io_.version = SND_PCM_IOPLUG_VERSION;
    io_.name = name_.c_str();
    io_.poll_fd = pollPipe_[0];
    io_.poll_events = POLLIN;
    io_.callback = &callbacks_;
    if (int err = snd_pcm_ioplug_create(&io_, name_.c_str(), stream, 0); err < 0) {
      ADD_FAILURE() << "snd_pcm_ioplug_create: " << snd_strerror(err);
      return;
    }
    const unsigned access[] = {SND_PCM_ACCESS_RW_INTERLEAVED}, formats[] = {SND_PCM_FORMAT_S16_LE};
    snd_pcm_ioplug_set_param_list(&io_, SND_PCM_IOPLUG_HW_ACCESS, 1, access);
    snd_pcm_ioplug_set_param_list(&io_, SND_PCM_IOPLUG_HW_FORMAT, 1, formats);
    snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_CHANNELS, 1, 8);
    snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_RATE, 48000, 48000);
    snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 64, 1 << 20);
    snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_PERIODS, limits.periodsMin,
                                    limits.periodsMax);
  }
  ~ScriptedPcm() {
    if (io_.pcm) snd_pcm_ioplug_delete(&io_);
    for (int fd : pollPipe_) close(fd);
  }
  ScriptedPcm(const ScriptedPcm &) = delete;
  ScriptedPcm &operator=(const ScriptedPcm &) = delete;

  snd_pcm_t *pcm() const { return io_.pcm; }
  void setState(snd_pcm_state_t state) { snd_pcm_ioplug_set_state(&io_, state); }

 private:
  snd_pcm_ioplug_t io_{};
  snd_pcm_ioplug_callback_t callbacks_{};
  std::string name_;
  int pollPipe_[2] = {-1, -1};
};
