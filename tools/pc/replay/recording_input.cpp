#include "replay/recording_input.h"

namespace {
void putS16(uint8_t *p, int16_t v) {
  const uint16_t u = static_cast<uint16_t>(v);
  p[0] = static_cast<uint8_t>(u);
  p[1] = static_cast<uint8_t>(u >> 8);
}
}  // namespace

std::string replayLoad(const std::string &arrayPath, const std::string &linePath,
                       int rawLineChannels, ReplayInput *in) {
  std::string err = wavRead(arrayPath, &in->array);
  if (!err.empty()) return err;
  if (in->array.channels != REPLAY_MICS)
    return arrayPath + ": has " + std::to_string(in->array.channels) + " channels, the array has 8";
  if (in->array.sampleRate != REPLAY_RATE)
    return arrayPath + ": sample rate " + std::to_string(in->array.sampleRate) +
           " Hz, the estimator needs 48000 Hz";
  in->reference.clear();
  if (linePath.empty()) return "";

  WavData line;
  if (wavFileHasHeader(linePath)) {
    err = wavRead(linePath, &line);
    if (err.empty() && line.sampleRate != REPLAY_RATE)
      err = linePath + ": sample rate " + std::to_string(line.sampleRate) +
            " Hz, the line-in runs at 48000 Hz";
  } else {
    err = rawS16Read(linePath, rawLineChannels, REPLAY_RATE, &line);
  }
  if (!err.empty()) return err;
  in->reference.resize(line.frames());
  for (size_t i = 0; i < in->reference.size(); ++i)
    in->reference[i] = line.samples[i * line.channels];
  return "";
}

size_t replayFrameCount(const ReplayInput &in) { return in.array.frames() / REPLAY_FRAME; }

void replayArrayFrame(const ReplayInput &in, size_t f, uint8_t *out) {
  const int16_t *s = in.array.samples.data() + f * REPLAY_FRAME * REPLAY_MICS;
  for (int i = 0; i < REPLAY_FRAME * REPLAY_MICS; ++i) putS16(out + 2 * i, s[i]);
}

bool replayReferenceBlock(const ReplayInput &in, size_t f, uint8_t *out) {
  if ((f + 1) * REPLAY_FRAME > in.reference.size()) return false;
  const int16_t *s = in.reference.data() + f * REPLAY_FRAME;
  for (int i = 0; i < REPLAY_FRAME; ++i) putS16(out + 2 * i, s[i]);
  return true;
}
