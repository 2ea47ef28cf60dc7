// Recognisable test bytes: byte i of pattern(n, seed) is seed + 7 i (mod 256),
// so a shifted, dropped or repeated byte shows.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

inline std::vector<uint8_t> pattern(size_t n, uint8_t seed) {
  std::vector<uint8_t> bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7);
  return bytes;
}
