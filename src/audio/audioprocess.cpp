#include "audio/audioprocess.h"

// Placeholder bodies, completed with the audio capture path.
AudioEndpoint gEndpoints[4];

AudioEndpoint *velquare_audioprocess_endpoint(uint32_t type) {
  switch (type) {
    case AUDIOPROCESS_DIGITMIC: return &gEndpoints[EP_DIGITMIC];
    case AUDIOPROCESS_ANALOGMIC: return &gEndpoints[EP_ANALOGMIC];
    case AUDIOPROCESS_LINEOUT: return &gEndpoints[EP_LINEOUT];
    case AUDIOPROCESS_LINEIN: return &gEndpoints[EP_LINEIN];
    default: return nullptr;
  }
}

int velquare_audioprocess_init(int) { return 0; }
int velquare_audioprocess_proc_start(int) { return 0; }
int velquare_audioprocess_uninit(int) { return 0; }
void *velquare_audioprocess_capture_proc(void *) { return nullptr; }
void *velquare_audioprocess_play_proc(void *) { return nullptr; }

