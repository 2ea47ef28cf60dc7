// An angle x time picture of the spatial spectrum: one column per frame (or
// per group of frames for long recordings), +90 degrees at the top, each
// column scaled to its own maximum; the published direction is traced over
// it and a status strip below shows direction (green), loudspeaker (magenta)
// and no direction (dark).
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct SpectrumPicture {
  size_t framesPerColumn = 1;
  size_t columns = 0;
  std::vector<float> level;        // columns x 181, 0..1
  std::vector<uint8_t> scanned;    // per column: 1 if any frame had a spectrum
  std::vector<uint8_t> published;  // per column: the byte published at its last frame
};

void spectrumPictureInit(SpectrumPicture *pic, size_t frames);
// spectrum may be null (frame without a scan).
void spectrumPictureAdd(SpectrumPicture *pic, size_t frame, const float *spectrum,
                        uint8_t published);
// Writes the picture as PNG.
std::string spectrumPictureWrite(const SpectrumPicture &pic, const std::string &path);
