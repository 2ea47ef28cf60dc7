// A synthetic talker for tests that cannot rely on a speech synthesiser:
// a glottal pulse train with a wandering pitch, shaped by formant resonators
// that move from vowel to vowel, under a syllabic envelope with word pauses.
#pragma once
#include <cstdint>
#include <vector>

// `seconds` of voiced speech-like sound at `sampleRate`, peak about 0.5 of full
// scale. The sound starts with a syllable at once; words are 2-4 syllables of
// 120-260 ms, with 80-300 ms pauses in between. Same seed, same sound.
std::vector<float> makeVoicedSpeech(double seconds, int sampleRate, uint32_t seed);
