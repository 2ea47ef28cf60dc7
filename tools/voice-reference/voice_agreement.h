// How well the voice model's decision matches the reference probabilities of
// the calibration recordings, frame by frame (20 ms frames, microphone 0).
#pragma once
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "orienangle/estimator/voice_model/voice_activity.h"
#include "voice-reference/voice_sources.h"

struct VoiceAgreement {
  int frames = 0;
  int agreeing = 0;    // frames where both say voice or both say no voice
  int ours = 0;        // frames our decision calls voice
  int reference = 0;   // frames the reference calls voice
  int leadFrames = 0;  // the same over the noise-only lead
  int leadOurs = 0;
  int leadReference = 0;
};

// The reference's decision per 10 ms half frame from a fixture ("P1 P2" in
// truncated percent per line): voice if it reaches 50. Empty if unreadable.
std::vector<uint8_t> voiceReferenceRead(const std::string &path);

// Runs a fresh voice model with `net` over microphone 0 (16-bit scale, 48 kHz)
// and compares its decision with the reference's half-frame decisions; a
// 20 ms frame is voice if either half is. The first `leadFrames` frames are
// noise only.
VoiceAgreement voiceAgreementMeasure(const std::vector<float> &mic0,
                                     const std::vector<uint8_t> &referenceHalves, int leadFrames,
                                     const VoiceNetwork &net = voiceNetworkFitted());

// A rendered calibration recording with its reference decisions.
struct VoiceRecording {
  VoiceRecipe recipe;
  std::vector<float> mic0;               // 16-bit scale
  std::vector<uint8_t> referenceHalves;  // per 10 ms
};

// Loads AUDIO_DIR/NAME/array.wav and FIXTURE_DIR/NAME.txt of every recipe.
// Returns an empty string on success, else the first problem.
std::string voiceRecordingsLoad(const std::string &recipesPath, const std::string &fixtureDir,
                                const std::string &audioDir, std::vector<VoiceRecording> *out);

// Prints the agreement of `net` per recording, per noise at 5 dB and above,
// on noise only and overall, as a markdown table; returns the overall
// agreement at 5 dB and above.
double voiceAgreementTable(const std::vector<VoiceRecording> &recordings, const VoiceNetwork &net,
                           FILE *out);
