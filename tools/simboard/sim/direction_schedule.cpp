#include "sim/direction_schedule.h"

#include <cmath>
#include <cstdlib>

namespace {
constexpr double kMaxDegrees = 90.0;

bool parseNumber(const std::string &s, double *value) {
  if (s.empty()) return false;
  char *end = nullptr;
  *value = strtod(s.c_str(), &end);
  return end == s.c_str() + s.size() && std::isfinite(*value);
}
}  // namespace

std::string parseDirectionSchedule(const std::string &text,
                                   std::vector<PlaneWaveSegment> *segments) {
  segments->clear();
  double degrees = 0.0;
  if (text.find(':') == std::string::npos) {
    if (!parseNumber(text, &degrees)) return "direction '" + text + "' is not a number of degrees";
    if (std::fabs(degrees) > kMaxDegrees)
      return "direction " + text + " is outside -90..90 degrees";
    segments->push_back({0, degrees});
    return "";
  }
  double lastTime = -1.0;
  size_t pos = 0;
  while (pos <= text.size()) {
    const size_t comma = std::min(text.find(',', pos), text.size());
    const std::string item = text.substr(pos, comma - pos);
    const size_t colon = item.find(':');
    double seconds = 0.0;
    if (colon == std::string::npos || !parseNumber(item.substr(0, colon), &seconds) ||
        !parseNumber(item.substr(colon + 1), &degrees))
      return "schedule entry '" + item + "' is not SECONDS:DEGREES";
    if (seconds < 0.0 || seconds <= lastTime)
      return "schedule times must start at 0 or later and rise: '" + item + "'";
    if (std::fabs(degrees) > kMaxDegrees)
      return "schedule entry '" + item + "': direction outside -90..90 degrees";
    segments->push_back(
        {static_cast<size_t>(std::llround(seconds * PLANE_WAVE_SAMPLE_RATE)), degrees});
    lastTime = seconds;
    pos = comma + 1;
  }
  return "";
}
