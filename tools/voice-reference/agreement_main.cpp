// quenvarile-voice-agreement: the voice model against the reference
// probabilities over rendered calibration recordings, as a table.
//
//   quenvarile-voice-agreement RECIPES FIXTURE_DIR AUDIO_DIR
//
// AUDIO_DIR/NAME/array.wav as left by `VOICE_AUDIO_DIR=AUDIO_DIR regenerate`.
#include <cstdio>
#include <string>
#include <vector>

#include "voice-reference/voice_agreement.h"

int main(int argc, char **argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: quenvarile-voice-agreement RECIPES FIXTURE_DIR AUDIO_DIR\n");
    return 2;
  }
  std::vector<VoiceRecording> recordings;
  const std::string err = voiceRecordingsLoad(argv[1], argv[2], argv[3], &recordings);
  if (!err.empty()) {
    fprintf(stderr, "quenvarile-voice-agreement: %s\n", err.c_str());
    return 1;
  }
  voiceAgreementTable(recordings, voiceNetworkFitted(), stdout);
  return 0;
}
