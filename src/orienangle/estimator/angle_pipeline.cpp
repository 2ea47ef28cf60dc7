#include "orienangle/estimator/angle_pipeline.h"

#include <cstring>

#if defined(__ARM_NEON)
#include <arm_neon.h>
#endif

#include "orienangle/estimator/estimator.h"
#include "orienangle/estimator/far_end_detector.h"
#include "orienangle/estimator/frame_analysis.h"
#include "orienangle/estimator/spatial_scan.h"

namespace {

// Slot of the frame `back` frames before the current one.
uint32_t slotBefore(uint32_t cursor, int back) {
  return (cursor + ORIEN_SLOTS - static_cast<uint32_t>(back)) % ORIEN_SLOTS;
}

void clearPeaks(OrienAngleEstimator *est) {
  for (auto &angle : est->peakAngles[est->frameCursor]) angle = ANGLE_NONE;
}

int absInt(int v) { return v < 0 ? -v : v; }

// First maximum of a 181-point accumulator: running maximum from 0.0 at index 0,
// replaced only by a strictly greater value (lowest index wins ties).
int firstMaximum(const float *v) {
  int best = 0;
  float bestValue = 0.0f;
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) {
    if (v[a] > bestValue) {
      bestValue = v[a];
      best = a;
    }
  }
  return best;
}

}  // namespace

// Band test: bands above three times their noise.
void angleBandTest(OrienAngleEstimator *est) {
  const uint32_t slot = est->frameCursor;
  uint32_t hits = 0;
  for (int b = 0; b < PIPE_HIT_BANDS; ++b) {
    if (est->bandEnergy[b] > PIPE_BAND_FACTOR * est->micNoise.chanNoise[b]) {
      ++hits;
      est->bandActive[b] = 1;
    }
    if (b == PIPE_LOW_HIT_LAST) est->decision.lowBandHitCount[slot] = hits;
  }
  est->decision.bandHitCount[slot] = hits;
}

// Bin selection: bins well above their noise and above their recent level.
void angleSelectBins(OrienAngleEstimator *est) {
  const uint32_t slot = est->frameCursor;
  est->binSelectedCount = 0;
  est->decision.binHitCount[slot] = 0;
  for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS; ++k) {
    const float p = est->binPower[k];
    const bool aboveNoise = p > PIPE_BIN_NOISE_FACTOR * est->micNoise.binNoise[k];  // single
    const bool aboveLevel = p > PIPE_BIN_SMOOTH_FACTOR * est->binPowerSmooth[k];    // double
    if (aboveNoise && aboveLevel) {
      est->binSelected[k] = 1;
      ++est->binSelectedCount;
      if (k <= ORIEN_LOW_BIN_LAST) ++est->decision.binHitCount[slot];
    } else {
      est->binSelected[k] = 0;
    }
  }
}

namespace {

int openGains(const float *gains) {
  int open = 0;
  for (int i = 1; i <= PIPE_GAIN_LAST; ++i)
    if (gains[i] > PIPE_GAIN_OPEN) ++open;
  return open;
}

}  // namespace

bool angleVoiced(float p1, float p2, const float *gains1, const float *gains2) {
  return p1 > PIPE_VOICE_PROB || p2 > PIPE_VOICE_PROB || openGains(gains1) >= PIPE_OPEN_GAINS ||
         openGains(gains2) >= PIPE_OPEN_GAINS;
}

namespace {

// Voice decision: the voice model on both halves of microphone 0.
void voiceDecision(OrienAngleEstimator *est, const float *frame) {
  OrienAngleScratch &s = est->scratch;
  const float p1 = rnnoise_process_frame(est->denoiser, s.denoiseOut[0], s.denoiseInput);
  std::memcpy(s.denoiseInput, frame + PIPE_DENOISE_BLOCK, sizeof(float) * PIPE_DENOISE_BLOCK);
  const float p2 = rnnoise_process_frame(est->denoiser, s.denoiseOut[1], s.denoiseInput);
  const bool voiced = angleVoiced(p1, p2, s.denoiseOut[0], s.denoiseOut[1]);
  est->decision.vadFlag[est->frameCursor] = voiced ? 1u : 0u;
}

}  // namespace

namespace {

#if defined(__ARM_NEON)
// Whether some aligned block of four samples lies wholly within the limit. Any
// run of ten consecutive samples contains such a block, so without one the frame
// is not silent; speech almost never has one, and this answers for 16 samples
// in a few vector operations where the plain loop spends two compares, two
// flag transfers and branches on every sample. The sign bit shifted out, the
// bits of |x| order like |x| (and a NaN above every limit), so the test is
// exact in integers: the smallest block maximum is below the limit's bits.
bool anyQuietBlock(const float *frame) {
  static_assert(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE % 16 == 0, "whole groups of four blocks");
  uint32_t limitBits;
  std::memcpy(&limitBits, &PIPE_SILENCE_LIMIT, sizeof limitBits);
  uint32x4_t smallest = vdupq_n_u32(0xffffffffu);
  for (int i = 0; i < ORIEN_MIC_NUM * ORIEN_FRAME_SIZE; i += 16) {
    // Lane j of val[k] is sample 4j + k: lane j of the maximum is block j's.
    const uint32x4x4_t v = vld4q_u32(reinterpret_cast<const uint32_t *>(frame + i));
    const uint32x4_t m01 = vmaxq_u32(vshlq_n_u32(v.val[0], 1), vshlq_n_u32(v.val[1], 1));
    const uint32x4_t m23 = vmaxq_u32(vshlq_n_u32(v.val[2], 1), vshlq_n_u32(v.val[3], 1));
    smallest = vminq_u32(smallest, vmaxq_u32(m01, m23));
  }
  const uint32x2_t pair = vpmin_u32(vget_low_u32(smallest), vget_high_u32(smallest));
  return vget_lane_u32(vpmin_u32(pair, pair), 0) < (limitBits << 1);
}
#else
bool anyQuietBlock(const float *) { return true; }
#endif

}  // namespace

// Digital silence: ten consecutive samples within +-1 anywhere in the frame (runs cross planes).
bool angleDigitalSilence(const float *frame) {
  if (!anyQuietBlock(frame)) return false;
  int run = 0;
  for (int i = 0; i < ORIEN_MIC_NUM * ORIEN_FRAME_SIZE; ++i) {
    if (frame[i] > -PIPE_SILENCE_LIMIT && frame[i] < PIPE_SILENCE_LIMIT) {
      if (++run >= PIPE_SILENCE_RUN) return true;
    } else {
      run = 0;
    }
  }
  return false;
}

namespace {

// Spatial scan of a frame that is not silent, unless a hold after silence skips it.
void spatialStep(OrienAngleEstimator *est) {
  if (est->holdCount >= 1 && est->holdCount <= PIPE_HOLD_ANALYSE - 1) {
    ++est->holdCount;
    clearPeaks(est);
    if (est->holdCount != PIPE_HOLD_ANALYSE) return;
  } else {
    est->holdCount = 0;
    clearPeaks(est);
  }
  if (est->binSelectedCount > PIPE_MIN_BINS) {
    if (est->referenceArithmetic)
      spatialSpectrumScanReference(est, est->scratch.spectra);
    else
      spatialSpectrumScan(est, est->scratch.spectra);
  }
}

int farEndCount(const OrienAngleEstimator *est, int window) {
  int count = 0;
  for (int back = 0; back < window; ++back)
    if (est->farEnd.farEndFlag[slotBefore(est->frameCursor, back)] != 0) ++count;
  return count;
}

// acc += row, direction by direction (up to 80 rows a frame). On the board four
// directions per vector: the same sums, each rounded on its own.
void addRow(float *acc, const float *row) {
  int a = 0;
#if defined(__ARM_NEON)
  for (; a + 4 <= ORIEN_ANGLE_NUM; a += 4)
    vst1q_f32(acc + a, vaddq_f32(vld1q_f32(acc + a), vld1q_f32(row + a)));
#endif
  for (; a < ORIEN_ANGLE_NUM; ++a) acc[a] += row[a];
}

// Pooling and acceptance: pools agreeing frames; true when a direction was decided.
bool poolAndDecide(OrienAngleEstimator *est) {
  const uint32_t cursor = est->frameCursor;
  const int a0 = static_cast<int>(est->peakAngles[cursor][0]);
  if (a0 == ANGLE_NONE) return false;

  float *acc = est->scratch.pooled;
  std::memcpy(acc, est->angleSpectrum[cursor], sizeof(float) * ORIEN_ANGLE_NUM);
  int pooled = 0, voiced = 0, speech = 0;

  auto visit = [&](int back, int centre) {
    const uint32_t f = slotBefore(cursor, back);
    if (est->decision.vadFlag[f] != 0) ++voiced;
    if (est->decision.speechFlag[f] != 0) ++speech;
    const int peak = static_cast<int>(est->peakAngles[f][0]);
    if (absInt(peak - centre) > PIPE_AGREE_DEGREES || est->farEnd.farEndFlag[f] != 0) return false;
    addRow(acc, est->angleSpectrum[f]);
    ++pooled;
    return true;
  };

  // Near pass around this frame's best peak.
  for (int back = 1; back <= PIPE_NEAR_FRAMES; ++back) visit(back, a0);
  if (pooled <= PIPE_NEAR_MIN_POOLED) return false;

  // Far pass around the near pool's peak.
  const int p1 = firstMaximum(acc);
  int lastAge = 0;
  for (int back = PIPE_NEAR_FRAMES + 1; back < PIPE_POOL_FRAMES; ++back)
    if (visit(back, p1)) lastAge = back + 1;

  if (!(lastAge > PIPE_MIN_LAST_AGE && pooled > PIPE_MIN_POOLED && voiced > PIPE_MIN_VOICED &&
        speech > PIPE_MIN_SPEECH))
    return false;

  // Smoothing toward the pooled peak.
  const int p = firstMaximum(acc);
  const int cur = static_cast<int>(est->curAngle);
  const int d = cur - p;
  const int step = d > 0 ? -1 : 1;
  if (d < -PIPE_JUMP_DEGREES || d > PIPE_JUMP_DEGREES || absInt(d) <= PIPE_SNAP_DEGREES) {
    est->curAngle = static_cast<uint32_t>(p);
  } else if (est->idleFrames < PIPE_SLOW_IDLE) {
    est->curAngle = static_cast<uint32_t>(cur + step);
  } else if (absInt(d) == 2) {
    est->curAngle = static_cast<uint32_t>(p);
  } else {
    est->curAngle = static_cast<uint32_t>(cur + 2 * step);
  }
  est->idleFrames = 0;
  return true;
}

}  // namespace

// Decision: the record-only frames, the loudspeaker gate, pooling and the stale timeout.
void angleDecide(OrienAngleEstimator *est) {
  ++est->idleFrames;
  if (est->idleFrames <= PIPE_RECORD_ONLY_FRAMES) return;
  if (farEndCount(est, PIPE_FAR_END_WINDOW) > PIPE_FAR_END_FRAMES) {
    est->idleFrames = 0;
    if (est->farEnd.farEndLatched == 1) est->curAngle = ANGLE_FAR_END;
    return;
  }
  if (est->idleFrames <= PIPE_MIN_IDLE_FOR_POOL) return;
  if (poolAndDecide(est)) return;
  if (est->idleFrames > PIPE_STALE_FRAMES) {
    est->curAngle = ANGLE_NONE;
    est->prevAngle = ANGLE_NONE;
  }
}

float angleFrameProcess(OrienAngleEstimator *est, const float *, const float *frame,
                        const float *spkinFrame, uint8_t *outAngle, uint8_t *outAux) {
  OrienAngleScratch &s = est->scratch;

  // Preparation, loudspeaker detector, spectral front end.
  std::memset(s.frontEnd, 0, sizeof s.frontEnd);
  s.frontEnd[0] = 1.0f;
  std::memcpy(s.denoiseInput, frame, sizeof(float) * PIPE_DENOISE_BLOCK);
  if (spkinFrame != nullptr) farEndDetect(est, spkinFrame);
  const float result = orienAngleFrameAnalyse(est, frame, s.frontEnd, s.spectra);

  // Which bands and bins stand out of the noise.
  angleBandTest(est);
  angleSelectBins(est);

  // Restart the voice model after more than 100 s without a direction.
  if (est->idleFrames > PIPE_DENOISE_RESET_FRAMES && est->curAngle == ANGLE_NONE) {
    rnnoise_init(est->denoiser, nullptr);
    est->idleFrames = 0;
  }

  // Voice decision on microphone 0.
  voiceDecision(est, frame);

  // Digital silence holds the analysis off for this frame and the next two.
  if (angleDigitalSilence(frame)) {
    est->holdCount = PIPE_HOLD_AFTER_SILENCE;
    clearPeaks(est);
  } else {
    spatialStep(est);
  }

  // Gate, pool and smooth the direction.
  angleDecide(est);

  // Publication and advance of both ring cursors.
  *outAngle = static_cast<uint8_t>(est->curAngle & 0xFF);
  *outAux = static_cast<uint8_t>(est->prevAngle & 0xFF);
  est->frameCursor = (est->frameCursor + 1) % ORIEN_SLOTS;
  est->ringCursor = (est->ringCursor + 1) % ORIEN_BAND_RING;
  return result;
}
