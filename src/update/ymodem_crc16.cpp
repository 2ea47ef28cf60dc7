#include "update/ymodem_crc16.h"

namespace {
constexpr uint16_t kCrcPolynomial = 0x1021;
constexpr uint16_t kCrcTopBit = 0x8000;
}  // namespace

uint16_t velquare_ymodem_crc16(const uint8_t *data, int len) {
  uint16_t crc = 0;
  for (int i = 0; i < len; ++i) {
    crc ^= static_cast<uint16_t>(data[i] << 8);
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc & kCrcTopBit) ? static_cast<uint16_t>((crc << 1) ^ kCrcPolynomial)
                               : static_cast<uint16_t>(crc << 1);
  }
  return crc;
}
