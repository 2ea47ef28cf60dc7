// PCM configuration and recovery taken over from the ALSA sample player.
#pragma once
#include <alsa/asoundlib.h>

struct AudioEndpoint;

int set_params(AudioEndpoint *ep);
void xrun(snd_pcm_t *pcm, int stream, bool monotonic);
void suspend(snd_pcm_t *pcm);
