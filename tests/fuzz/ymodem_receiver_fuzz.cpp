// libFuzzer target: the receiver's decisions over a whole transfer, chunk by
// chunk as the block reader hands them on. Bytes 0-1 give the size of a file
// (its bytes follow from it); a sender sends it as a valid transfer would
// (header, data blocks, EOT, EOT, closing block) while every further input
// byte puts one line fault on the next chunk: a flipped bit, a chunk cut
// short, a header byte turned into EOT, a lost chunk, an earlier chunk again.
// Whatever happens, a file reported complete is exactly the file sent.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../update/ymodem_sender_block.h"
#include "update/ymodem_block.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  std::string file((data[0] | data[1] << 8) % 3000, '\0');
  for (size_t i = 0; i < file.size(); ++i) file[i] = static_cast<char>(i * 37 + data[0]);
  std::vector<std::string> units{
      ymodemBlock(0, "quenvarile_ota" + std::string(1, '\0') + std::to_string(file.size()))};
  for (size_t at = 0; at < file.size(); at += kYmodemDataBytes)
    units.push_back(
        ymodemBlock(static_cast<uint8_t>(units.size()), file.substr(at, kYmodemDataBytes)));
  units.insert(units.end(), {"\x04", "\x04", ymodemBlock(0, "")});

  YmodemFile rx;
  velquare_ymodem_file_reset(&rx);
  std::string written;
  size_t next = 0;
  for (size_t i = 2; i < size && next < units.size(); ++i) {
    const unsigned fault = data[i] & 7, arg = data[i] >> 3;
    std::string chunk = units[next];
    if (fault == 3)
      chunk[arg * 37 % chunk.size()] ^=
          static_cast<char>(1 << (arg & 7));  // one bit: the CRC sees it
    if (fault == 4) chunk.resize(1 + arg % chunk.size());
    if (fault == 5) chunk[0] = '\x04';
    if (fault == 6 && ++next) continue;
    if (fault == 7) chunk = units[arg % (next + 1)];
    if (fault < 3) ++next;
    const auto *bytes = reinterpret_cast<const uint8_t *>(chunk.data());
    const YmodemStep step = velquare_ymodem_take_chunk(&rx, bytes, static_cast<int>(chunk.size()));
    if (step.dataLen > kYmodemDataBytes || memchr(rx.name, 0, sizeof rx.name) == nullptr) abort();
    written.append(reinterpret_cast<const char *>(step.data), step.dataLen);
    if (step.end != YMODEM_GOES_ON) break;
  }
  if (velquare_ymodem_file_complete(&rx) && written != file) abort();
  return 0;
}
