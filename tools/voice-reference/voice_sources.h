// The voice model's calibration recordings: real recorded speech (the
// asterisk-core-sounds-en-wav prompts) with one of several noises, described
// by a one-line recipe and rendered through quenvarile-simulate.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class VoiceNoise { Pink, White, Babble, Fan, Music, Knocks, Street };

struct VoiceRecipe {
  std::string name;  // fixture name, also the reference file's stem
  VoiceNoise noise;
  double
      snrDb;  // talker's active level over the noise's; with no talker, the noise's level in dBFS
  bool noiseOnly;    // no talker (written "@LEVEL" in place of the SNR)
  uint32_t seed;     // picks prompts, pauses and the noise
  double direction;  // talker's direction in degrees
};

constexpr double kVoiceLeadSeconds = 2.0;  // noise only before the talker starts
constexpr double kVoiceNoiseOnlySeconds = 6.0;
constexpr int kVoiceRate = 48000;

// Reads a recipe file ("name noise snr seed direction" per line, '#' comments;
// "@LEVEL" for snr: noise only, at LEVEL dBFS).
// Returns an empty string on success, else the problem.
std::string voiceRecipesRead(const std::string &path, std::vector<VoiceRecipe> *out);

// The talker: several recorded prompts with pauses between them, at 48 kHz.
// Empty if the prompts are not installed (`soundDir` names their directory).
std::vector<float> voiceTalker(const std::string &soundDir, uint32_t seed);

// The noise source for the non-diffuse kinds, `count` samples at 48 kHz
// (babble is made of the prompts, with voices of different pitch).
std::vector<float> voiceNoiseSource(const std::string &soundDir, VoiceNoise kind, size_t count,
                                    uint32_t seed);

// The noise's name as recipes write it ("pink", "music", ...).
const char *voiceNoiseName(VoiceNoise noise);

// Frames at the start of a recording that hold noise only.
int voiceLeadFrames(const VoiceRecipe &r);

// Writes OUTDIR/talker.wav (and OUTDIR/noise.wav for the point-source noises)
// and returns the arguments for quenvarile-simulate that render ARRAY and LINE,
// or an empty string when the prompts are missing.
std::string voiceRenderSources(const std::string &soundDir, const VoiceRecipe &r,
                               const std::string &outDir, const std::string &array,
                               const std::string &line);

// Where Debian installs the prompts.
constexpr const char *kVoicePromptDir = "/usr/share/asterisk/sounds/en";
