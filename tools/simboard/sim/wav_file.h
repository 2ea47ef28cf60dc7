// 16-bit PCM WAV files of any channel count, and the headerless interleaved
// S16_LE recordings the daemon writes for the line-in.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct WavData {
  int sampleRate = 0;
  int channels = 0;
  std::vector<int16_t> samples;  // interleaved, channels per frame

  size_t frames() const { return channels > 0 ? samples.size() / channels : 0; }
};

// Reads a 16-bit PCM WAV (plain or extensible format). A data size that runs
// past the end of the file (such as the daemon's placeholder 0xFFFFFFD8) means
// "until end of file"; a trailing partial frame is dropped. Returns an empty
// string on success, else a message naming the problem.
std::string wavRead(const std::string &path, WavData *out);

// Reads headerless interleaved S16_LE samples with the given channel count and rate.
std::string rawS16Read(const std::string &path, int channels, int sampleRate, WavData *out);

// True if the file starts with a RIFF/WAVE header.
bool wavFileHasHeader(const std::string &path);

// Writes a canonical 44-byte-header WAV with correct size fields.
std::string wavWrite(const std::string &path, const WavData &wav);

// One channel as floats in -1..1 (16-bit full scale = 1).
std::vector<float> wavChannel(const WavData &wav, int channel);

// Float samples (-1..1) to 16-bit with rounding and clipping.
int16_t floatToS16(float x);
