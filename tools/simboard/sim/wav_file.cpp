#include "sim/wav_file.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {
constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatExtensible = 0xFFFE;
constexpr size_t kCanonicalHeaderBytes = 44;

struct FileCloser {
  void operator()(FILE *f) const { fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

uint32_t le32(const uint8_t *p) {
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
}
uint16_t le16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
void put32(uint8_t *p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
void put16(uint8_t *p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

std::string readAll(const std::string &path, std::vector<uint8_t> *bytes) {
  File f(fopen(path.c_str(), "rb"));
  if (!f) return "cannot open " + path + ": " + strerror(errno);
  uint8_t chunk[65536];
  size_t n;
  while ((n = fread(chunk, 1, sizeof chunk, f.get())) > 0)
    bytes->insert(bytes->end(), chunk, chunk + n);
  if (ferror(f.get())) return "cannot read " + path;
  return "";
}

void takeSamples(const uint8_t *data, size_t bytes, int channels, WavData *out) {
  const size_t frameBytes = 2 * static_cast<size_t>(channels);
  const size_t count = bytes / frameBytes * channels;
  out->samples.resize(count);
  for (size_t i = 0; i < count; ++i) out->samples[i] = static_cast<int16_t>(le16(data + 2 * i));
}
}  // namespace

bool wavFileHasHeader(const std::string &path) {
  File f(fopen(path.c_str(), "rb"));
  uint8_t head[12];
  if (!f || fread(head, 1, sizeof head, f.get()) != sizeof head) return false;
  return memcmp(head, "RIFF", 4) == 0 && memcmp(head + 8, "WAVE", 4) == 0;
}

std::string wavRead(const std::string &path, WavData *out) {
  std::vector<uint8_t> bytes;
  std::string err = readAll(path, &bytes);
  if (!err.empty()) return err;
  if (bytes.size() < 12 || memcmp(bytes.data(), "RIFF", 4) != 0 ||
      memcmp(bytes.data() + 8, "WAVE", 4) != 0)
    return path + ": not a RIFF/WAVE file";
  bool haveFormat = false;
  size_t pos = 12;
  while (pos + 8 <= bytes.size()) {
    const uint8_t *chunk = bytes.data() + pos;
    const uint32_t declared = le32(chunk + 4);
    const size_t body = pos + 8;
    const size_t available = bytes.size() - body;
    if (memcmp(chunk, "fmt ", 4) == 0) {
      if (declared < 16 || available < 16) return path + ": fmt chunk too short";
      const uint8_t *fmt = bytes.data() + body;
      uint16_t format = le16(fmt);
      if (format == kFormatExtensible && declared >= 26 && available >= 26) format = le16(fmt + 24);
      const int channels = le16(fmt + 2);
      const int bits = le16(fmt + 14);
      if (format != kFormatPcm) return path + ": not PCM (format " + std::to_string(format) + ")";
      if (bits != 16)
        return path + ": " + std::to_string(bits) + "-bit samples, only 16-bit PCM is read";
      if (channels < 1) return path + ": no channels";
      out->channels = channels;
      out->sampleRate = static_cast<int>(le32(fmt + 4));  // the byte rate is not trusted
      haveFormat = true;
    } else if (memcmp(chunk, "data", 4) == 0) {
      if (!haveFormat) return path + ": data chunk before fmt chunk";
      // A size past the end of the file is a placeholder: read what is there.
      const size_t length = declared > available ? available : declared;
      takeSamples(bytes.data() + body, length, out->channels, out);
      return "";
    }
    if (declared > available) break;
    pos = body + declared + (declared & 1);  // chunks are padded to even length
  }
  return path + (haveFormat ? ": no data chunk" : ": no fmt chunk");
}

std::string rawS16Read(const std::string &path, int channels, int sampleRate, WavData *out) {
  std::vector<uint8_t> bytes;
  std::string err = readAll(path, &bytes);
  if (!err.empty()) return err;
  out->channels = channels;
  out->sampleRate = sampleRate;
  takeSamples(bytes.data(), bytes.size(), channels, out);
  return "";
}

std::string wavWrite(const std::string &path, const WavData &wav) {
  const uint64_t dataBytes = 2ull * wav.samples.size();
  if (wav.channels < 1 || wav.sampleRate < 1) return path + ": bad channel count or rate";
  if (dataBytes > 0xFFFFFFFFull - 36) return path + ": too long for a WAV file";
  uint8_t h[kCanonicalHeaderBytes];
  memcpy(h, "RIFF", 4);
  put32(h + 4, static_cast<uint32_t>(36 + dataBytes));
  memcpy(h + 8, "WAVEfmt ", 8);
  put32(h + 16, 16);
  put16(h + 20, kFormatPcm);
  put16(h + 22, static_cast<uint16_t>(wav.channels));
  put32(h + 24, static_cast<uint32_t>(wav.sampleRate));
  put32(h + 28, static_cast<uint32_t>(wav.sampleRate * 2 * wav.channels));
  put16(h + 32, static_cast<uint16_t>(2 * wav.channels));
  put16(h + 34, 16);
  memcpy(h + 36, "data", 4);
  put32(h + 40, static_cast<uint32_t>(dataBytes));
  File f(fopen(path.c_str(), "wb"));
  if (!f) return "cannot create " + path + ": " + strerror(errno);
  std::vector<uint8_t> data(dataBytes);
  for (size_t i = 0; i < wav.samples.size(); ++i)
    put16(data.data() + 2 * i, static_cast<uint16_t>(wav.samples[i]));
  if (fwrite(h, 1, sizeof h, f.get()) != sizeof h ||
      fwrite(data.data(), 1, data.size(), f.get()) != data.size())
    return "cannot write " + path;
  if (fclose(f.release()) != 0) return "cannot write " + path;
  return "";
}

std::vector<float> wavChannel(const WavData &wav, int channel) {
  std::vector<float> out(wav.frames());
  for (size_t i = 0; i < out.size(); ++i)
    out[i] = wav.samples[i * wav.channels + channel] / 32768.0f;
  return out;
}

int16_t floatToS16(float x) {
  const float scaled = std::nearbyint(x * 32768.0f);
  if (scaled > 32767.0f) return 32767;
  if (scaled < -32768.0f) return -32768;
  return static_cast<int16_t>(scaled);
}
