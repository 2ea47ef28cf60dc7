#include "orienangle/module/level_meter.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr double kUint32Limit = 4294967295.0;

void resetFrame(uint8_t *frame) { memset(frame, kLevelSilent, LEVEL_REPORT_BYTES); }

// Chooses the code byte of one channel and finishes its printed line.
uint8_t levelCode(uint8_t dbVal, const LevelThresholds &t) {
  if (t.sendRetMode == 1) {
    putchar('\n');
    return dbVal;
  }
  if (dbVal >= t.micDBmax) {
    putchar('\n');
    return kLevelAdequate;
  }
  if (dbVal >= t.micDBmin) {
    puts("->lowVolum");
    return kLevelLow;
  }
  puts("->noVolum");
  return kLevelSilent;
}

// Energy sums are double: 250 frames of full-scale samples reach 2.6e14.
double sumSquares(const int16_t *samples, int count, int stride) {
  double sum = 0.0;
  for (int i = 0; i < count; ++i) {
    double s = samples[i * stride];
    sum += s * s;
  }
  return sum;
}

void micReport(LevelMeter *m, const LevelThresholds &t) {
  putchar('\n');
  for (int ch = 1; ch <= LEVEL_MIC_CHANNELS; ++ch) {
    double mean;
    uint8_t dbVal = levelDbValue(m->micPower[ch - 1], &mean);
    printf("MDitgitMic(ch%d):%lf, DBVal:%d", ch, mean, dbVal);
    m->levelFrame[ch] = levelCode(dbVal, t);
    m->micPower[ch - 1] = 0.0;
  }
}

void lineReport(LevelMeter *m, const LevelThresholds &t) {
  putchar('\n');
  double mean;
  uint8_t dbVal = levelDbValue(m->linePower, &mean);
  printf("MLineIn:%lf, DBVal:%d", mean, dbVal);
  m->levelFrame[kLevelLineInOffset] = levelCode(dbVal, t);
  m->linePower = 0.0;
}

}  // namespace

uint8_t levelDbValue(double energy, double *meanOut) {
  double mean = energy / LEVEL_ENERGY_DIVISOR;
  *meanOut = mean;
  double dB = 10.0 * log10(mean);
  uint32_t whole = 0;  // silence (minus infinity), negatives and NaN
  if (dB >= kUint32Limit)
    whole = UINT32_MAX;
  else if (dB > 0.0)
    whole = static_cast<uint32_t>(dB);
  return static_cast<uint8_t>(whole);
}

void levelMeterInit(LevelMeter *m) {
  memset(m, 0, sizeof *m);
  resetFrame(m->levelFrame);
  hostSealLevelFrame(m->levelFrame);  // checksum 0x90: nine "silent" codes
}

void levelMeterAddMic(LevelMeter *m, const int16_t *interleaved, const LevelThresholds &t) {
  for (int c = 0; c < LEVEL_MIC_CHANNELS; ++c)
    m->micPower[c] += sumSquares(interleaved + c, LEVEL_FRAME_SAMPLES, LEVEL_MIC_CHANNELS);
  if (++m->micFrames > LEVEL_PERIOD_FRAMES - 1) {
    micReport(m, t);
    m->readyMask |= LEVEL_READY_MIC;
    m->micFrames = 0;
  }
}

void levelMeterAddLine(LevelMeter *m, const int16_t *samples, const LevelThresholds &t) {
  m->linePower += sumSquares(samples, LEVEL_FRAME_SAMPLES, 1);
  if (++m->lineFrames > LEVEL_PERIOD_FRAMES - 1) {
    lineReport(m, t);
    m->readyMask |= LEVEL_READY_LINE;
    m->lineFrames = 0;
  }
}

void levelMeterSkipMic(LevelMeter *m) { m->micFrames = 0; }
void levelMeterSkipLine(LevelMeter *m) { m->lineFrames = 0; }

bool levelMeterTakeReport(LevelMeter *m, uint8_t out[LEVEL_REPORT_BYTES]) {
  if ((m->readyMask & (LEVEL_READY_MIC | LEVEL_READY_LINE)) != (LEVEL_READY_MIC | LEVEL_READY_LINE))
    return false;
  hostSealLevelFrame(m->levelFrame);
  m->readyMask = 0;
  memcpy(out, m->levelFrame, LEVEL_REPORT_BYTES);
  resetFrame(m->levelFrame);
  return true;
}
