// CRC-16/XMODEM of a YMODEM block's data bytes.
#pragma once
#include <cstdint>

// Polynomial 0x1021, initial value 0, no reflection, no final XOR.
uint16_t velquare_ymodem_crc16(const uint8_t *data, int len);
