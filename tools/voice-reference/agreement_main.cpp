// quenvarile-voice-agreement: the voice model against the reference
// probabilities over rendered calibration recordings, as a table.
//
//   quenvarile-voice-agreement RECIPES FIXTURE_DIR AUDIO_DIR
//
// AUDIO_DIR/NAME/array.wav as left by `VOICE_AUDIO_DIR=AUDIO_DIR regenerate`.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "sim/wav_file.h"
#include "voice-reference/voice_agreement.h"
#include "voice-reference/voice_sources.h"

namespace {
const char *const kNoiseNames[] = {"pink", "white", "babble", "fan", "music", "knocks", "street"};

void add(VoiceAgreement &to, const VoiceAgreement &a) {
  to.frames += a.frames, to.agreeing += a.agreeing, to.ours += a.ours, to.reference += a.reference;
  to.leadFrames += a.leadFrames, to.leadOurs += a.leadOurs, to.leadReference += a.leadReference;
}

void row(const std::string &name, const VoiceAgreement &a) {
  auto pct = [](int n, int d) { return d ? 100.0 * n / d : 0.0; };
  printf("| %-14s | %5.1f | %5.1f | %5.1f | %5.1f | %5.1f |\n", name.c_str(),
         pct(a.agreeing, a.frames), pct(a.ours, a.frames), pct(a.reference, a.frames),
         pct(a.leadOurs, a.leadFrames), pct(a.leadReference, a.leadFrames));
}
}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: quenvarile-voice-agreement RECIPES FIXTURE_DIR AUDIO_DIR\n");
    return 2;
  }
  std::vector<VoiceRecipe> recipes;
  if (!voiceRecipesRead(argv[1], &recipes).empty()) return 1;
  printf(
      "| recording      | agree %% | ours %% | reference %% | noise-only: ours %% | reference %% "
      "|\n");
  printf("|---|---|---|---|---|---|\n");
  std::map<std::string, VoiceAgreement> byNoise;
  VoiceAgreement all, atLeast5;
  for (const VoiceRecipe &r : recipes) {
    WavData wav;
    if (!wavRead(std::string(argv[3]) + "/" + r.name + "/array.wav", &wav).empty()) continue;
    std::vector<float> mic0 = wavChannel(wav, 0);
    for (float &x : mic0) x *= 32768.0f;
    const VoiceAgreement a = voiceAgreementMeasure(
        mic0, voiceReferenceRead(std::string(argv[2]) + "/" + r.name + ".txt"), voiceLeadFrames(r));
    row(r.name, a);
    add(r.noiseOnly ? byNoise["noise only"] : all, a);
    if (!r.noiseOnly && r.snrDb >= 5) {
      add(atLeast5, a);
      add(byNoise[kNoiseNames[static_cast<int>(r.noise)] + std::string(" >=5dB")], a);
    }
  }
  for (const auto &[name, a] : byNoise) row(name, a);
  row("all >=5dB", atLeast5);
  row("all", all);
  return 0;
}
