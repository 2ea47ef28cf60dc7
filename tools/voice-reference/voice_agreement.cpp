#include "voice-reference/voice_agreement.h"

#include <algorithm>
#include <fstream>

#include "orienangle/estimator/voice_model/rnnoise.h"

namespace {
constexpr int kHalf = 480;
constexpr int kBands = 22;

// The estimator's voice decision on one half frame: probability above 0.5,
// or 3 or more of gains 1..15 above 0.5.
bool voicedHalf(DenoiseState *st, const float *in) {
  float gains[kBands];
  const float p = rnnoise_process_frame(st, gains, in);
  const int open =
      static_cast<int>(std::count_if(gains + 1, gains + 16, [](float g) { return g > 0.5f; }));
  return p > 0.5f || open >= 3;
}
}  // namespace

std::vector<uint8_t> voiceReferenceRead(const std::string &path) {
  std::ifstream in(path);
  std::vector<uint8_t> out;
  for (int p1, p2; in >> p1 >> p2;) out.push_back(p1 >= 50 || p2 >= 50);
  return out;
}

VoiceAgreement voiceAgreementMeasure(const std::vector<float> &mic0,
                                     const std::vector<uint8_t> &reference, int leadFrames) {
  VoiceAgreement a;
  DenoiseState *st = rnnoise_create(nullptr);
  for (size_t f = 0; f < reference.size() && (f + 1) * 2 * kHalf <= mic0.size(); ++f) {
    const bool first = voicedHalf(st, &mic0[f * 2 * kHalf]);
    const bool ours = voicedHalf(st, &mic0[f * 2 * kHalf + kHalf]) || first;
    const bool ref = reference[f] != 0;
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
