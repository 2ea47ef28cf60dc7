#include "replay/spectrum_picture.h"

#include <algorithm>
#include <cmath>

#include "replay/raster.h"
#include "replay/recording_input.h"
#include "replay/spectrum_tap.h"

namespace {
constexpr size_t kMaxColumns = 4000;  // long recordings pool frames into columns
constexpr int kPixelsPerDegree = 2;
constexpr int kPlotHeight = REPLAY_ANGLES * kPixelsPerDegree;
constexpr int kLeft = 40, kRight = 34, kTop = 12, kStrip = 8, kBottom = 26;
constexpr int kGlyphScale = 2;
constexpr float kContrast = 3.0f;  // columns are shown as (value / max) ^ kContrast

constexpr int kAngleOffset = 90;  // grid index a is a - 90 degrees
constexpr int kAngleNone = 230, kAngleFarEnd = 231;

const Rgb kNoScan{28, 28, 36};
const Rgb kTrace{0, 230, 255};  // cyan: stands out from the heat colours
const Rgb kGrid{90, 90, 110};
const Rgb kText{20, 20, 20};
const Rgb kBackground{250, 250, 250};
const Rgb kStripNone{60, 60, 60};
const Rgb kStripFarEnd{220, 0, 200};
const Rgb kStripDirection{0, 190, 60};

// Dark blue -> purple -> orange -> pale yellow.
Rgb heat(float v) {
  static const float stops[][3] = {
      {0, 0, 20}, {60, 10, 120}, {180, 40, 110}, {250, 130, 30}, {255, 250, 190}};
  v = std::clamp(v, 0.0f, 1.0f) * 4.0f;
  const int i = std::min(3, static_cast<int>(v));
  const float f = v - i;
  auto mix = [&](int c) {
    return static_cast<uint8_t>(stops[i][c] + f * (stops[i + 1][c] - stops[i][c]));
  };
  return {mix(0), mix(1), mix(2)};
}

int rowOfAngleIndex(int a) { return kTop + (REPLAY_ANGLES - 1 - a) * kPixelsPerDegree; }

double niceTimeStep(double seconds, double pixelsPerSecond) {
  for (double step : {0.5, 1.0, 2.0, 5.0, 10.0, 20.0, 30.0, 60.0, 120.0, 300.0, 600.0})
    if (step * pixelsPerSecond >= 60.0) return step;
  return std::max(600.0, seconds / 10.0);
}
}  // namespace

void spectrumPictureInit(SpectrumPicture *pic, size_t frames) {
  pic->framesPerColumn = std::max<size_t>(1, (frames + kMaxColumns - 1) / kMaxColumns);
  pic->columns = std::max<size_t>(1, (frames + pic->framesPerColumn - 1) / pic->framesPerColumn);
  pic->level.assign(pic->columns * REPLAY_ANGLES, 0.0f);
  pic->scanned.assign(pic->columns, 0);
  pic->published.assign(pic->columns, kAngleNone);
}

void spectrumPictureAdd(SpectrumPicture *pic, size_t frame, const float *spectrum,
                        uint8_t published) {
  const size_t c = frame / pic->framesPerColumn;
  if (c >= pic->columns) return;
  pic->published[c] = published;
  if (!spectrum) return;
  const float peak = *std::max_element(spectrum, spectrum + REPLAY_ANGLES);
  if (!(peak > 0.0f)) return;
  pic->scanned[c] = 1;
  float *column = &pic->level[c * REPLAY_ANGLES];
  for (int a = 0; a < REPLAY_ANGLES; ++a)
    column[a] = std::max(column[a], std::pow(std::max(spectrum[a], 0.0f) / peak, kContrast));
}

std::string spectrumPictureWrite(const SpectrumPicture &pic, const std::string &path) {
  const int plotWidth = static_cast<int>(pic.columns);
  Raster img(kLeft + plotWidth + kRight, kTop + kPlotHeight + kStrip + kBottom, kBackground);

  for (int x = 0; x < plotWidth; ++x) {
    const float *column = &pic.level[static_cast<size_t>(x) * REPLAY_ANGLES];
    for (int a = 0; a < REPLAY_ANGLES; ++a)
      img.fill(kLeft + x, rowOfAngleIndex(a), 1, kPixelsPerDegree,
               pic.scanned[x] ? heat(column[a]) : kNoScan);
  }
  // Degree grid and labels every 30 degrees.
  for (int deg = -90; deg <= 90; deg += 30) {
    const int y = rowOfAngleIndex(deg + kAngleOffset);
    for (int x = 0; x < plotWidth; x += 4) img.fill(kLeft + x, y, 2, 1, kGrid);
    img.fill(kLeft - 5, y, 5, 1, kText);
    const std::string label = std::to_string(deg);
    img.text(kLeft - 7 - img.textWidth(label, kGlyphScale), y - 5, label, kGlyphScale, kText);
  }
  // Published direction and status strip.
  const int stripTop = kTop + kPlotHeight + 2;
  for (int x = 0; x < plotWidth; ++x) {
    const int p = pic.published[x];
    if (p <= REPLAY_ANGLES - 1)
      img.fill(kLeft + x, rowOfAngleIndex(p), 1, kPixelsPerDegree, kTrace);
    const Rgb strip = p <= REPLAY_ANGLES - 1 ? kStripDirection
                      : p == kAngleFarEnd    ? kStripFarEnd
                                             : kStripNone;
    img.fill(kLeft + x, stripTop, 1, kStrip - 2, strip);
  }
  // Time axis in seconds.
  const double columnSeconds = REPLAY_FRAME_SECONDS * pic.framesPerColumn;
  const double seconds = plotWidth * columnSeconds;
  const double step = niceTimeStep(seconds, 1.0 / columnSeconds);
  const int axisY = stripTop + kStrip;
  for (double t = 0.0; t <= seconds + 1e-9; t += step) {
    const int x = kLeft + static_cast<int>(std::lround(t / columnSeconds));
    img.fill(x, axisY, 1, 5, kText);
    char label[32];
    snprintf(label, sizeof label, step < 1.0 ? "%.1f" : "%.0f", t);
    img.text(x - img.textWidth(label, kGlyphScale) / 2, axisY + 8, label, kGlyphScale, kText);
  }
  img.text(kLeft + plotWidth + 16, axisY + 8, "s", kGlyphScale, kText);  // unit of the time labels
  return img.writePng(path);
}
