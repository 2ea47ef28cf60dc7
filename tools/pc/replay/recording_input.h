// The replay tool's inputs: an 8-channel microphone recording and an optional
// line-in recording, cut into the daemon's 20 ms frames in its byte layouts.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "sim/wav_file.h"

constexpr int REPLAY_MICS = 8;
constexpr int REPLAY_FRAME = 960;  // samples per channel per frame
constexpr int REPLAY_RATE = 48000;
// Headerless line-in recordings of the daemon: the capture worker's
// /tmp/recCapAudioLinein.wav holds stereo, the angle module's
// /tmp/angleRecCapAudioAlgLinein.wav holds the mono reference blocks.
constexpr int REPLAY_LINEIN_CHANNELS = 2;
constexpr double REPLAY_FRAME_SECONDS = static_cast<double>(REPLAY_FRAME) / REPLAY_RATE;

struct ReplayInput {
  WavData array;                   // 8 channels, 48 kHz
  std::vector<int16_t> reference;  // line-in left channel, 48 kHz; empty when none
};

// Loads the microphone recording (a WAV; the daemon's own recordings with
// placeholder sizes included) and, if linePath is not empty, the line-in (a WAV
// whose first channel is taken, or headerless S16_LE with rawLineChannels
// channels, whose first (left) channel is taken). Returns an empty string or an
// error message.
std::string replayLoad(const std::string &arrayPath, const std::string &linePath,
                       int rawLineChannels, ReplayInput *in);

// Number of whole frames in the microphone recording.
size_t replayFrameCount(const ReplayInput &in);

// Frame f as the capture ring would hold it: 960 interleaved 8-channel S16_LE samples.
void replayArrayFrame(const ReplayInput &in, size_t f, uint8_t out[REPLAY_FRAME * REPLAY_MICS * 2]);

// Reference block f as the line-in ring would hold it: 960 mono S16_LE samples.
// Returns false when the line-in has no whole block f (the daemon then keeps
// the previous block).
bool replayReferenceBlock(const ReplayInput &in, size_t f, uint8_t out[REPLAY_FRAME * 2]);
