// Wire constants of the reduced YMODEM the board receives (CRC variant,
// 128-byte blocks only).
#pragma once
#include <cstdint>

constexpr uint8_t kYmodemSoh = 0x01;  // start of a 128-byte block
constexpr uint8_t kYmodemStx = 0x02;  // start of a 1024-byte block: refused
constexpr uint8_t kYmodemEot = 0x04;  // end of the file
constexpr uint8_t kYmodemAck = 0x06;
constexpr uint8_t kYmodemNak = 0x15;
constexpr uint8_t kYmodemCrcRequest = 'C';  // asks the sender for CRC blocks

// A block: header byte, sequence number, its complement, data, CRC high, CRC low.
constexpr int kYmodemSeqOffset = 1;
constexpr int kYmodemDataOffset = 3;
constexpr int kYmodemDataBytes = 128;
constexpr int kYmodemCrcBytes = 2;
constexpr int kYmodemBlockBytes = kYmodemDataOffset + kYmodemDataBytes + kYmodemCrcBytes;  // 133

// The only file the board accepts, and a name it refuses without a word.
constexpr const char *kYmodemUpdateFileName = "quenvarile_ota";
constexpr const char *kYmodemBackupFileName = "quenvarile_Bak";
