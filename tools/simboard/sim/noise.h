// Noise sources and level setting for simulated recordings.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

enum class NoiseColour { White, Pink };

// Gaussian noise of unit power (white) or unit power with a 1/f spectrum (pink).
std::vector<float> makeNoise(NoiseColour colour, size_t count, uint32_t seed);

// Mean power of the active part of a signal: the 20 ms blocks whose power is
// within 40 dB of the loudest block (so pauses do not dilute the level of speech).
double activePower(const std::vector<float> &signal, int sampleRate);

// Mean power over all samples.
double meanPower(const std::vector<float> &signal);

// Factor for a noise of power noisePower to sit snrDb below signalPower.
double noiseScaleForSnr(double signalPower, double noisePower, double snrDb);
