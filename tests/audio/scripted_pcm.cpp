#include "scripted_pcm.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>


namespace {

int start(snd_pcm_ioplug_t *) { return 0; }
int stop(snd_pcm_ioplug_t *) { return 0; }
snd_pcm_sframes_t pointer(snd_pcm_ioplug_t *) { return 0; }

}  // namespace

ScriptedPcm::ScriptedPcm(const std::string &name, snd_pcm_stream_t stream, const ScriptedLimits &limits)
    : name_(name) {
  // A descriptor that is always readable, so waits on this PCM return at once.
  if (pipe(pollPipe_) != 0 || write(pollPipe_[1], "x", 1) != 1) ADD_FAILURE() << "pipe";
  callbacks_.start = start;
  callbacks_.stop = stop;
  callbacks_.pointer = pointer;
  io_.version = SND_PCM_IOPLUG_VERSION;
  io_.name = name_.c_str();
  io_.poll_fd = pollPipe_[0];
  io_.poll_events = POLLIN;
  io_.callback = &callbacks_;
  io_.private_data = this;
  int err = snd_pcm_ioplug_create(&io_, name_.c_str(), stream, 0);
  if (err < 0) {
    ADD_FAILURE() << "snd_pcm_ioplug_create: " << snd_strerror(err);
    return;
  }
  const unsigned access[] = {SND_PCM_ACCESS_RW_INTERLEAVED};
  const unsigned formats[] = {SND_PCM_FORMAT_S16_LE};
  snd_pcm_ioplug_set_param_list(&io_, SND_PCM_IOPLUG_HW_ACCESS, 1, access);
  snd_pcm_ioplug_set_param_list(&io_, SND_PCM_IOPLUG_HW_FORMAT, 1, formats);
  snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_CHANNELS, limits.channelsMin, limits.channelsMax);
  snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_RATE, limits.rate, limits.rate);
  snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 64, 1 << 20);
  snd_pcm_ioplug_set_param_minmax(&io_, SND_PCM_IOPLUG_HW_PERIODS, limits.periodsMin, limits.periodsMax);
}

ScriptedPcm::~ScriptedPcm() {
  if (io_.pcm) snd_pcm_ioplug_delete(&io_);
  for (int fd : pollPipe_)
    if (fd >= 0) close(fd);
}
