// A small RGB canvas with filled rectangles, a 3x5 pixel font for numbers and
// PNG output (libpng; without it, writing reports that PNG is not built in).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct Rgb {
  uint8_t r, g, b;
};

class Raster {
 public:
  Raster(int width, int height, Rgb background);
  void fill(int x, int y, int w, int h, Rgb colour);  // clipped to the canvas
  // Digits, '-', '.', 's' and space; each glyph 3x5 pixels times scale.
  void text(int x, int y, const std::string &s, int scale, Rgb colour);
  int textWidth(const std::string &s, int scale) const;
  std::string writePng(const std::string &path) const;

 private:
  int width_, height_;
  std::vector<uint8_t> pixels_;  // rows of RGB
};
