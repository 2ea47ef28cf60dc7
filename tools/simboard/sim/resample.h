// Sample-rate conversion by a Kaiser-windowed sinc kernel (polyphase table for
// rational ratios with a moderate number of phases).
#pragma once
#include <vector>

// Converts `in` at inRate Hz to outRate Hz. The pass band reaches 95 % of the
// lower of the two Nyquist frequencies; stop-band rejection is about 80 dB.
std::vector<float> resample(const std::vector<float> &in, int inRate, int outRate);
