#include "orienangle/estimator/voice_model/band_analysis.h"

#include <kiss_fftr.h>

#include <cmath>
#include <cstring>

#include "orienangle/estimator/voice_model/voice_vector.h"

using namespace voice;

namespace {
constexpr double kTwoPi = 6.283185307179586;

kiss_fftr_cfg planOf(BandAnalysis *ba) { return reinterpret_cast<kiss_fftr_cfg>(ba->fftMemory); }

// Spreads each bin's power over the two bands whose centres enclose it,
// linearly by distance (triangular bands).
void poolBands(const kiss_fft_cpx *spectrum, float bandEnergy[kBands]) {
  float carried = 0.0f;  // what the bins below band b's centre gave to band b
  for (int b = 0; b + 1 < kBands; ++b) {
    const int first = static_cast<int>(kBandEdgeHz[b] / kBinHz);
    const int width = static_cast<int>(kBandEdgeHz[b + 1] / kBinHz) - first;
    const float step = 1.0f / static_cast<float>(width);
    float falling = carried, rising = 0.0f;
    for (int j = 0; j < width; ++j) {
      const kiss_fft_cpx &x = spectrum[first + j];
      const float power = x.r * x.r + x.i * x.i;
      const float toNext = static_cast<float>(j) * step * power;
      falling += power - toNext;
      rising += toNext;
    }
    bandEnergy[b] = falling;
    carried = rising;
  }
  // The top centre itself belongs wholly to the last band.
  const kiss_fft_cpx &top = spectrum[static_cast<int>(kBandEdgeHz[kBands - 1] / kBinHz)];
  bandEnergy[kBands - 1] = carried + top.r * top.r + top.i * top.i;
}
}  // namespace

int bandAnalysisPrepare(BandAnalysis *ba) {
  size_t length = sizeof ba->fftMemory;
  if (kiss_fftr_alloc(kWindowSize, 0, ba->fftMemory, &length) == nullptr) return -1;
  for (int i = 0; i < kWindowSize; ++i)
    ba->window[i] = static_cast<float>(0.5 - 0.5 * std::cos(kTwoPi * i / kWindowSize));
  ba->ready = 1;
  return 0;
}

float frameMeanSquare(const float *in) {
  VoiceVec sum = voiceSplat(0.0f);
  for (int i = 0; i < kFrameSize; i += 4) {
    const VoiceVec x = voiceLoad(in + i);
    sum = voiceMulAdd(sum, x, x);
  }
  float lanes[4];
  voiceStore(lanes, sum);
  return ((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) / kFrameSize;
}

void bandAnalysisRun(BandAnalysis *ba, const float *in, float bandEnergy[kBands]) {
  float span[kWindowSize];
  kiss_fft_cpx spectrum[kSpectrumBins];
  for (int i = 0; i < kFrameSize; i += 4) {
    voiceStore(span + i, voiceMul(voiceLoad(ba->previousInput + i), voiceLoad(ba->window + i)));
    voiceStore(span + kFrameSize + i,
               voiceMul(voiceLoad(in + i), voiceLoad(ba->window + kFrameSize + i)));
  }
  bandAnalysisSkip(ba, in);
  kiss_fftr(planOf(ba), span, spectrum);
  poolBands(spectrum, bandEnergy);
}

void bandAnalysisSkip(BandAnalysis *ba, const float *in) {
  memcpy(ba->previousInput, in, sizeof ba->previousInput);
}
