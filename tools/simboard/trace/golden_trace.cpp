#include "trace/golden_trace.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/estimator.h"
#include "sim/noise.h"
#include "sim/plane_wave.h"
#include "sim/voiced_speech.h"

namespace {

constexpr int kRate = 48000;
constexpr size_t kFrame = ORIEN_FRAME_SIZE;

// A recording: 8 planar microphone planes and the loudspeaker reference (empty:
// none), in 16-bit sample units, whole numbers as the daemon's frames are.
struct Recording {
  size_t frames = 0;
  std::vector<float> array, reference;
};

float toSample(float v) {
  return std::fmax(-32768.0f, std::fmin(32767.0f, std::nearbyint(v * 32768.0f)));
}

// Talker `talker` (per-sample directions, or empty for none) plus pink noise at
// noiseLevel (RMS, full scale 1), plus a loudspeaker playing `speaker` from 0 degrees.
Recording render(size_t frames, const std::vector<double> &path, const std::vector<float> &talker,
                 float noiseLevel, const std::vector<float> &speaker) {
  Recording r;
  const size_t n = frames * kFrame;
  r.frames = frames;
  r.array.assign(PLANE_WAVE_MICS * n, 0.0f);
  std::vector<float> part(PLANE_WAVE_MICS * n);
  if (!talker.empty()) {
    planeWaveRenderPath(talker.data(), n, path.data(), part.data());
    for (size_t i = 0; i < r.array.size(); ++i) r.array[i] += part[i];
  }
  if (!speaker.empty()) {
    planeWaveRender(speaker.data(), n, 0.0, part.data());
    for (size_t i = 0; i < r.array.size(); ++i) r.array[i] += part[i];
    r.reference.resize(n);
    for (size_t i = 0; i < n; ++i) r.reference[i] = toSample(speaker[i]);
  }
  if (noiseLevel > 0.0f)
    for (int m = 0; m < PLANE_WAVE_MICS; ++m) {
      const std::vector<float> noise = makeNoise(NoiseColour::Pink, n, 17u + m);
      for (size_t i = 0; i < n; ++i) r.array[m * n + i] += noiseLevel * noise[i];
    }
  for (float &v : r.array) v = toSample(v);
  return r;
}

std::vector<float> speech(size_t frames, double leadSeconds, uint32_t seed) {
  const size_t n = frames * kFrame, lead = static_cast<size_t>(leadSeconds * kRate);
  const std::vector<float> s = makeVoicedSpeech(static_cast<double>(n - lead) / kRate, kRate, seed);
  std::vector<float> out(n, 0.0f);
  for (size_t i = 0; i + lead < n && i < s.size(); ++i) out[lead + i] = s[i];
  return out;
}

Recording scenario(const std::string &name) {
  if (name == "talker") {  // a talker at +30 degrees in noise, after 0.3 s of noise
    return render(100, std::vector<double>(100 * kFrame, 30.0), speech(100, 0.3, 5), 0.01f, {});
  }
  if (name == "moving") {  // a talker walking from -40 to +20 degrees in noise
    std::vector<double> path(120 * kFrame);
    for (size_t i = 0; i < path.size(); ++i) path[i] = -40.0 + 60.0 * i / path.size();
    return render(120, path, speech(120, 0.2, 11), 0.005f, {});
  }
  if (name == "loudspeaker") {  // the board's loudspeaker alone (three voices), in faint noise
    std::vector<float> s = speech(110, 0.2, 23), b = speech(110, 0.2, 24), c = speech(110, 0.2, 25);
    for (size_t i = 0; i < s.size(); ++i) s[i] = 0.5f * (s[i] + b[i] + c[i]);
    return render(110, {}, {}, 0.002f, s);
  }
  if (name == "silence") {  // digital silence with a silent reference
    Recording r;
    r.frames = 20;
    r.array.assign(PLANE_WAVE_MICS * 20 * kFrame, 0.0f);
    r.reference.assign(20 * kFrame, 0.0f);
    return r;
  }
  return {};
}

uint32_t fnv1a(const uint16_t *flags, int n) {
  uint32_t h = 2166136261u;
  for (int i = 0; i < n; ++i) h = (h ^ flags[i]) * 16777619u;
  return h;
}

}  // namespace

const std::vector<std::string> &goldenTraceScenarios() {
  static const std::vector<std::string> names = {"talker", "moving", "loudspeaker", "silence"};
  return names;
}

std::vector<std::string> goldenTrace(const std::string &name) {
  const Recording r = scenario(name);
  std::vector<std::string> lines;
  OrienAngleEstimator *est = r.frames ? orienAngleEstimatorCreate() : nullptr;
  if (est == nullptr) return lines;
  std::vector<float> frame(ORIEN_MIC_NUM * kFrame);
  const size_t n = r.frames * kFrame;
  for (size_t f = 0; f < r.frames; ++f) {
    for (int m = 0; m < ORIEN_MIC_NUM; ++m)
      for (size_t i = 0; i < kFrame; ++i) frame[m * kFrame + i] = r.array[m * n + f * kFrame + i];
    const float *spkin = r.reference.empty() ? nullptr : r.reference.data() + f * kFrame;
    const uint32_t slot = est->frameCursor;
    uint8_t angle = 0, aux = 0;
    angleFrameProcess(est, frame.data(), frame.data(), spkin, &angle, &aux);
    const uint32_t peak = est->peakAngles[slot][0];
    const float peakValue = peak < ORIEN_ANGLE_NUM ? est->angleSpectrum[slot][peak] : 0.0f;
    int pooled = 0;
    for (int a = 1; a < ORIEN_ANGLE_NUM; ++a)
      if (est->scratch.pooled[a] > est->scratch.pooled[pooled]) pooled = a;
    char line[256];
    snprintf(line, sizeof line, "%zu %u %u %u %08x %u %u %d %u %d %u %.9g %d %.9g", f, angle, aux,
             est->binSelectedCount, fnv1a(est->binSelected, ORIEN_BINS),
             est->decision.speechFlag[slot], est->decision.vadFlag[slot], est->micNoise.voiceMetric,
             est->farEnd.farEndFlag[slot], est->farEnd.farEndLatched, peak,
             static_cast<double>(peakValue), pooled,
             static_cast<double>(est->scratch.pooled[pooled]));
    lines.push_back(line);
  }
  orienAngleEstimatorDestroy(est);
  return lines;
}

std::string goldenTraceHeader() {
  return "# Per-frame trace of the direction estimator over simulated recordings.\n"
         "# Fields: frame angle aux bins binhash speech voice metric farend latched peak\n"
         "#         peakvalue pooled pooledvalue (see tools/simboard/trace/golden_trace.h).\n"
         "# Regenerate only for a decided change of the estimator's behaviour, and say\n"
         "# why in the commit:  <build>/tools/trace/quenvarile-trace > "
         "tests/tools/golden_trace.txt\n";
}
