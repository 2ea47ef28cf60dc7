// quenvarile-voice-fit: fits the voice activity network to the reference's
// decisions on the rendered calibration recordings, writes the weights
// header and prints the agreement table of the new weights.
//
//   quenvarile-voice-fit [OPTIONS] RECIPES FIXTURE_DIR AUDIO_DIR OUT_HEADER
//     --epochs N         passes over the samples (default 1000)
//     --seed N           initial weights and sample order (default 1)
//     --noise-weight X   weight of no-voice targets on noise only (default 1.5)
//     --weight-decay X   L2 on the weights (default 1e-4)
//     --holdout          fit on the recordings of even seed, print the table
//                        of the odd ones: how well the fit carries over
//
// AUDIO_DIR/NAME/array.wav as left by `VOICE_AUDIO_DIR=AUDIO_DIR regenerate`.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "voice-reference/voice_network_fit.h"

namespace {
int usage() {
  fprintf(
      stderr,
      "usage: quenvarile-voice-fit [--epochs N] [--seed N] [--noise-weight X] [--weight-decay X] "
      "[--holdout] "
      "RECIPES FIXTURE_DIR AUDIO_DIR OUT_HEADER\n");
  return 2;
}
}  // namespace

int main(int argc, char **argv) {
  VoiceFitOptions options;
  bool holdout = false;
  std::vector<const char *> paths;
  for (int i = 1; i < argc; ++i) {
    const bool hasValue = i + 1 < argc;
    if (!strcmp(argv[i], "--epochs") && hasValue) {
      options.epochs = atoi(argv[++i]);
    } else if (!strcmp(argv[i], "--seed") && hasValue) {
      options.seed = static_cast<uint32_t>(strtoul(argv[++i], nullptr, 10));
    } else if (!strcmp(argv[i], "--noise-weight") && hasValue) {
      options.noiseOnlyWeight = atof(argv[++i]);
    } else if (!strcmp(argv[i], "--weight-decay") && hasValue) {
      options.weightDecay = atof(argv[++i]);
    } else if (!strcmp(argv[i], "--holdout")) {
      holdout = true;
    } else if (argv[i][0] == '-') {
      return usage();
    } else {
      paths.push_back(argv[i]);
    }
  }
  if (paths.size() != 4 || options.epochs < 1) return usage();
  std::vector<VoiceRecording> recordings, fitted, shown;
  const std::string err = voiceRecordingsLoad(paths[0], paths[1], paths[2], &recordings);
  if (!err.empty()) {
    fprintf(stderr, "quenvarile-voice-fit: %s\n", err.c_str());
    return 1;
  }
  for (const VoiceRecording &r : recordings)
    (!holdout || r.recipe.seed % 2 == 0 ? fitted : shown).push_back(r);
  if (!holdout) shown = fitted;
  const VoiceNetwork net = voiceNetworkFit(fitted, options);
  FILE *out = fopen(paths[3], "w");
  if (!out) {
    perror(paths[3]);
    return 1;
  }
  voiceNetworkWrite(net, out);
  fclose(out);
  voiceAgreementTable(shown, net, stdout);
  return 0;
}
