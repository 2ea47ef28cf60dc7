#include "voice-reference/voice_agreement.h"

#include <algorithm>
#include <fstream>
#include <map>

#include "orienangle/estimator/voice_model/voice_model.h"
#include "sim/wav_file.h"

namespace {
constexpr int kHalf = 480;
constexpr int kBands = 22;

// The estimator's voice decision on one half frame: probability above 0.5,
// or 3 or more of gains 1..15 above 0.5.
bool voicedHalf(DenoiseState *st, const VoiceNetwork &net, const float *in) {
  float gains[kBands];
  const float p = voiceModelProcess(st, net, gains, in, nullptr);
  const int open =
      static_cast<int>(std::count_if(gains + 1, gains + 16, [](float g) { return g > 0.5f; }));
  return p > 0.5f || open >= 3;
}

void add(VoiceAgreement &to, const VoiceAgreement &a) {
  to.frames += a.frames, to.agreeing += a.agreeing, to.ours += a.ours, to.reference += a.reference;
  to.leadFrames += a.leadFrames, to.leadOurs += a.leadOurs, to.leadReference += a.leadReference;
}

void row(FILE *out, const std::string &name, const VoiceAgreement &a) {
  auto pct = [](int n, int d) { return d ? 100.0 * n / d : 0.0; };
  fprintf(out, "| %-16s | %5.1f | %5.1f | %5.1f | %5.1f | %5.1f |\n", name.c_str(),
          pct(a.agreeing, a.frames), pct(a.ours, a.frames), pct(a.reference, a.frames),
          pct(a.leadOurs, a.leadFrames), pct(a.leadReference, a.leadFrames));
}
}  // namespace

std::vector<uint8_t> voiceReferenceRead(const std::string &path) {
  std::ifstream in(path);
  std::vector<uint8_t> out;
  for (int p1, p2; in >> p1 >> p2;) {
    out.push_back(p1 >= 50);
    out.push_back(p2 >= 50);
  }
  return out;
}

VoiceAgreement voiceAgreementMeasure(const std::vector<float> &mic0,
                                     const std::vector<uint8_t> &referenceHalves, int leadFrames,
                                     const VoiceNetwork &net) {
  VoiceAgreement a;
  DenoiseState *st = rnnoise_create(nullptr);
  for (size_t f = 0; 2 * f + 1 < referenceHalves.size() && (f + 1) * 2 * kHalf <= mic0.size();
       ++f) {
    const bool first = voicedHalf(st, net, &mic0[f * 2 * kHalf]);
    const bool ours = voicedHalf(st, net, &mic0[f * 2 * kHalf + kHalf]) || first;
    const bool ref = referenceHalves[2 * f] || referenceHalves[2 * f + 1];
    ++a.frames;
    a.agreeing += ours == ref;
    a.ours += ours;
    a.reference += ref;
    if (static_cast<int>(f) < leadFrames) {
      ++a.leadFrames;
      a.leadOurs += ours;
      a.leadReference += ref;
    }
  }
  rnnoise_destroy(st);
  return a;
}

std::string voiceRecordingsLoad(const std::string &recipesPath, const std::string &fixtureDir,
                                const std::string &audioDir, std::vector<VoiceRecording> *out) {
  std::vector<VoiceRecipe> recipes;
  const std::string err = voiceRecipesRead(recipesPath, &recipes);
  if (!err.empty()) return err;
  for (const VoiceRecipe &r : recipes) {
    VoiceRecording rec{r, {}, voiceReferenceRead(fixtureDir + "/" + r.name + ".txt")};
    if (rec.referenceHalves.empty()) return "no reference fixture for " + r.name;
    WavData wav;
    const std::string wavErr = wavRead(audioDir + "/" + r.name + "/array.wav", &wav);
    if (!wavErr.empty()) return r.name + ": " + wavErr;
    rec.mic0 = wavChannel(wav, 0);
    for (float &x : rec.mic0) x *= 32768.0f;
    out->push_back(std::move(rec));
  }
  return "";
}

double voiceAgreementTable(const std::vector<VoiceRecording> &recordings, const VoiceNetwork &net,
                           FILE *out) {
  fprintf(out,
          "| recording        | agree %% | ours %% | reference %% | "
          "noise-only: ours %% | reference %% |\n|---|---|---|---|---|---|\n");
  std::map<std::string, VoiceAgreement> byNoise;
  VoiceAgreement all, atLeast5;
  for (const VoiceRecording &rec : recordings) {
    const VoiceRecipe &r = rec.recipe;
    const VoiceAgreement a =
        voiceAgreementMeasure(rec.mic0, rec.referenceHalves, voiceLeadFrames(r), net);
    row(out, r.name, a);
    add(r.noiseOnly ? byNoise["noise only"] : all, a);
    if (!r.noiseOnly && r.snrDb >= 5) {
      add(atLeast5, a);
      add(byNoise[voiceNoiseName(r.noise) + std::string(" >=5dB")], a);
    }
  }
  for (const auto &[name, a] : byNoise) row(out, name, a);
  row(out, "all >=5dB", atLeast5);
  row(out, "all", all);
  return atLeast5.frames ? static_cast<double>(atLeast5.agreeing) / atLeast5.frames : 0.0;
}
