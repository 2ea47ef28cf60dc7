// Talker directions over time, written as text: "30" (fixed), or a schedule
// "0:30,5:-40" (from 0 s at +30 degrees, from 5 s at -40 degrees).
#pragma once
#include <string>
#include <vector>

#include "sim/plane_wave.h"

// Parses the text into plane-wave segments (start times in 48 kHz samples).
// Directions must lie in -90..90 and times must rise. Returns an empty string
// or a message saying what is wrong.
std::string parseDirectionSchedule(const std::string &text,
                                   std::vector<PlaneWaveSegment> *segments);
