// A 128-byte block as a sender such as sb makes it: SOH, the sequence number
// and its complement, the data padded with SUB, the CRC-16 high byte first.
#pragma once
#include <string>

#include "update/ymodem_crc16.h"
#include "update/ymodem_protocol.h"

inline std::string ymodemBlock(uint8_t seq, std::string data) {
  data.resize(kYmodemDataBytes, '\x1a');
  const uint16_t crc =
      velquare_ymodem_crc16(reinterpret_cast<const uint8_t *>(data.data()), kYmodemDataBytes);
  return std::string{static_cast<char>(kYmodemSoh), static_cast<char>(seq),
                     static_cast<char>(~seq)} +
         data + static_cast<char>(crc >> 8) + static_cast<char>(crc & 0xff);
}
