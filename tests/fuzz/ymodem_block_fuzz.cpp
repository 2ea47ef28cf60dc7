// libFuzzer target: a stream of blocks through the YMODEM block parser.
// Each block is preceded by one control byte: bits 0-1 pick the length
// (133, a short block, or one overfilled by up to 63 bytes), bit 7 fixes the
// CRC so that the header and data paths are reached often.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "update/ymodem_block.h"
#include "update/ymodem_crc16.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  YmodemFile file;
  velquare_ymodem_file_reset(&file);
  uint64_t announced = 0, written = 0;
  uint8_t block[2 * kYmodemBlockBytes];
  while (size > 0) {
    const uint8_t control = *data++;
    --size;
    const int len = (control & 3) < 2    ? kYmodemBlockBytes
                    : (control & 3) == 2 ? kYmodemBlockBytes - 1 - (control >> 2 & 15)
                                         : kYmodemBlockBytes + (size > 0 ? (data[0] & 63) : 0);
    if (size < static_cast<size_t>(len)) break;
    memcpy(block, data, static_cast<size_t>(len));
    data += len;
    size -= static_cast<size_t>(len);
    if (control & 0x80 && len >= kYmodemBlockBytes) {
      const uint16_t crc = velquare_ymodem_crc16(block + kYmodemDataOffset, len - kYmodemDataOffset - kYmodemCrcBytes);
      block[len - 2] = static_cast<uint8_t>(crc >> 8);
      block[len - 1] = static_cast<uint8_t>(crc);
    }
    const int wasHeader = file.expectHeader;
    const YmodemBlockResult r = velquare_ymodem_parse_block(&file, block, len);
    if (wasHeader && !file.expectHeader) announced = file.remaining;
    if (memchr(file.name, 0, sizeof file.name) == nullptr) abort();
    if (r.dataLen > static_cast<uint32_t>(kYmodemDataBytes)) abort();
    if (r.dataLen > 0 && (r.data < block || r.data + r.dataLen > block + len)) abort();
    if (r.status != 0 && r.dataLen != 0) abort();
    written += r.dataLen;
    if (!file.expectHeader && written + file.remaining != announced) abort();
  }
  return 0;
}
