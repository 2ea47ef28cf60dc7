// quenvarile-voice-fit: fits the voice activity network to the reference's
// decisions on the rendered calibration recordings, writes the weights
// header and prints the agreement table of the new weights.
//
//   quenvarile-voice-fit RECIPES FIXTURE_DIR AUDIO_DIR OUT_HEADER [ITERATIONS [SEED]]
//
// AUDIO_DIR/NAME/array.wav as left by `VOICE_AUDIO_DIR=AUDIO_DIR regenerate`.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "voice-reference/voice_network_fit.h"

int main(int argc, char **argv) {
  if (argc < 5 || argc > 7) {
    fprintf(stderr,
            "usage: quenvarile-voice-fit RECIPES FIXTURE_DIR AUDIO_DIR OUT_HEADER "
            "[ITERATIONS [SEED]]\n");
    return 2;
  }
  std::vector<VoiceRecording> recordings;
  const std::string err = voiceRecordingsLoad(argv[1], argv[2], argv[3], &recordings);
  if (!err.empty()) {
    fprintf(stderr, "quenvarile-voice-fit: %s\n", err.c_str());
    return 1;
  }
  VoiceFitOptions options;
  if (argc > 5) options.iterations = atoi(argv[5]);
  if (argc > 6) options.seed = static_cast<uint32_t>(strtoul(argv[6], nullptr, 10));
  const VoiceNetwork net = voiceNetworkFit(recordings, options);
  FILE *out = fopen(argv[4], "w");
  if (!out) {
    perror(argv[4]);
    return 1;
  }
  voiceNetworkWrite(net, out);
  fclose(out);
  voiceAgreementTable(recordings, net, stdout);
  return 0;
}
