// How well the voice model's decision matches the reference probabilities of
// a calibration recording, frame by frame (20 ms frames, microphone 0).
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct VoiceAgreement {
  int frames = 0;
  int agreeing = 0;    // frames where both say voice or both say no voice
  int ours = 0;        // frames our decision calls voice
  int reference = 0;   // frames the reference calls voice
  int leadFrames = 0;  // the same over the noise-only lead
  int leadOurs = 0;
  int leadReference = 0;
};

// The reference's decision per frame from a fixture ("P1 P2" in truncated
// percent per line): voice if either half reaches 50. Empty if unreadable.
std::vector<uint8_t> voiceReferenceRead(const std::string &path);

// Runs a fresh voice model over microphone 0 (16-bit scale, 48 kHz) and
// compares its decision with the reference's; the first `leadFrames` frames
// are noise only.
VoiceAgreement voiceAgreementMeasure(const std::vector<float> &mic0,
                                     const std::vector<uint8_t> &reference, int leadFrames);
