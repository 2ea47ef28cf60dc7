#include "replay/raster.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#ifdef QV_HAVE_PNG
#include <png.h>
#endif

namespace {
constexpr int kGlyphWidth = 3, kGlyphHeight = 5, kGlyphGap = 1;

// Rows of 3 bits, top row first, most significant bit on the left.
const uint8_t *glyph(char c) {
  static const uint8_t digits[10][kGlyphHeight] = {
      {7, 5, 5, 5, 7}, {2, 6, 2, 2, 7}, {7, 1, 7, 4, 7}, {7, 1, 7, 1, 7}, {5, 5, 7, 1, 1},
      {7, 4, 7, 1, 7}, {7, 4, 7, 5, 7}, {7, 1, 1, 2, 2}, {7, 5, 7, 5, 7}, {7, 5, 7, 1, 7}};
  static const uint8_t minus[kGlyphHeight] = {0, 0, 7, 0, 0};
  static const uint8_t dot[kGlyphHeight] = {0, 0, 0, 0, 2};
  static const uint8_t ess[kGlyphHeight] = {0, 3, 6, 1, 6};
  static const uint8_t blank[kGlyphHeight] = {0, 0, 0, 0, 0};
  if (c >= '0' && c <= '9') return digits[c - '0'];
  if (c == '-') return minus;
  if (c == '.') return dot;
  if (c == 's') return ess;
  return blank;
}
}  // namespace

Raster::Raster(int width, int height, Rgb background)
    : width_(width), height_(height), pixels_(static_cast<size_t>(width) * height * 3) {
  fill(0, 0, width, height, background);
}

void Raster::fill(int x, int y, int w, int h, Rgb colour) {
  const int x0 = std::max(0, x), x1 = std::min(width_, x + w);
  const int y0 = std::max(0, y), y1 = std::min(height_, y + h);
  for (int yy = y0; yy < y1; ++yy)
    for (int xx = x0; xx < x1; ++xx) {
      uint8_t *p = &pixels_[(static_cast<size_t>(yy) * width_ + xx) * 3];
      p[0] = colour.r, p[1] = colour.g, p[2] = colour.b;
    }
}

int Raster::textWidth(const std::string &s, int scale) const {
  return s.empty()
             ? 0
             : static_cast<int>(s.size()) * (kGlyphWidth + kGlyphGap) * scale - kGlyphGap * scale;
}

void Raster::text(int x, int y, const std::string &s, int scale, Rgb colour) {
  for (char c : s) {
    const uint8_t *rows = glyph(c);
    for (int r = 0; r < kGlyphHeight; ++r)
      for (int col = 0; col < kGlyphWidth; ++col)
        if (rows[r] & (4 >> col)) fill(x + col * scale, y + r * scale, scale, scale, colour);
    x += (kGlyphWidth + kGlyphGap) * scale;
  }
}

#ifdef QV_HAVE_PNG
std::string Raster::writePng(const std::string &path) const {
  FILE *f = fopen(path.c_str(), "wb");
  if (!f) return "cannot create " + path + ": " + strerror(errno);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, info ? &info : nullptr);
    fclose(f);
    return "cannot write " + path;
  }
  png_init_io(png, f);
  png_set_IHDR(png, info, width_, height_, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < height_; ++y)
    png_write_row(png, const_cast<png_bytep>(&pixels_[static_cast<size_t>(y) * width_ * 3]));
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return fclose(f) == 0 ? "" : "cannot write " + path;
}
#else
std::string Raster::writePng(const std::string &path) const {
  return path + ": this build has no PNG support (libpng was not found)";
}
#endif
