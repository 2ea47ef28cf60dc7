// The constant 44-byte RIFF/WAVE header of the debug recordings. Its size
// fields are placeholders that are never corrected, so a recording may be cut
// off at any moment and still opens in a player.
#pragma once
#include <cstddef>
#include <cstdint>

constexpr size_t WAV_HEADER_BYTES = 44;

// Fills the template with the given channel count (written into the low byte).
void wavHeaderFill(uint8_t header[WAV_HEADER_BYTES], uint8_t channels);
