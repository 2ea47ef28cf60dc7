// quenvarile-voice-sources: the talker and noise of one calibration recipe.
//
//   quenvarile-voice-sources RECIPES NAME OUTDIR
//
// Writes OUTDIR/talker.wav (and OUTDIR/noise.wav) and prints the arguments
// for quenvarile-simulate that render OUTDIR/array.wav and OUTDIR/line.wav.
#include <cstdio>
#include <string>
#include <vector>

#include "voice-reference/voice_sources.h"

int main(int argc, char **argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: quenvarile-voice-sources RECIPES NAME OUTDIR\n");
    return 2;
  }
  std::vector<VoiceRecipe> recipes;
  const std::string err = voiceRecipesRead(argv[1], &recipes);
  if (!err.empty()) {
    fprintf(stderr, "quenvarile-voice-sources: %s\n", err.c_str());
    return 1;
  }
  const std::string out = argv[3];
  for (const VoiceRecipe &r : recipes) {
    if (r.name != argv[2]) continue;
    const std::string args =
        voiceRenderSources(kVoicePromptDir, r, out, out + "/array.wav", out + "/line.wav");
    if (args.empty()) {
      fprintf(stderr,
              "quenvarile-voice-sources: cannot make the sources (is asterisk-core-sounds-en-wav "
              "installed?)\n");
      return 1;
    }
    printf("%s\n", args.c_str());
    return 0;
  }
  fprintf(stderr, "quenvarile-voice-sources: no recipe %s\n", argv[2]);
  return 1;
}
