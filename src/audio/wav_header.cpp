#include "audio/wav_header.h"

#include <cstring>

namespace {
// RIFF size 0xFFFFFFFC and data size 0xFFFFFFD8 stand for "unknown length";
// the byte rate 256000 is part of the template and kept as it is.
const uint8_t kTemplate[WAV_HEADER_BYTES] = {
    'R',  'I',  'F',  'F',  0xFC, 0xFF, 0xFF, 0xFF, 'W',  'A',  'V',  'E',  'f',  'm',  't',
    ' ',  0x10, 0x00, 0x00, 0x00, 0x01, 0x00, 0x08, 0x00, 0x80, 0xBB, 0x00, 0x00, 0x00, 0xE8,
    0x03, 0x00, 0x10, 0x00, 0x10, 0x00, 'd',  'a',  't',  'a',  0xD8, 0xFF, 0xFF, 0xFF};
constexpr size_t kChannelsOffset = 22;
}  // namespace

void wavHeaderFill(uint8_t header[WAV_HEADER_BYTES], uint8_t channels) {
  memcpy(header, kTemplate, WAV_HEADER_BYTES);
  header[kChannelsOffset] = channels;
}
