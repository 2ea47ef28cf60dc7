// The estimator's per-frame trace over the simulated recordings against its
// committed printout (golden_trace.txt; how to regenerate it is in its header).
// On the build machine every field must match exactly. On the board's
// architecture the fast transform is another library, whose float rounding
// differs: there the integer fields must still match exactly, and the two
// spectrum values within a relative 1e-5 (measured: at most 6e-7 apart).
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

#include "trace/golden_trace.h"

namespace {

std::map<std::string, std::vector<std::string>> committed() {
  std::ifstream in(QV_GOLDEN_TRACE);
  std::map<std::string, std::vector<std::string>> out;
  std::string line, name;
  while (std::getline(in, line))
    if (line.rfind("= ", 0) == 0)
      name = line.substr(2);
    else if (!line.empty() && line[0] != '#')
      out[name].push_back(line);
  return out;
}

bool sameFrame(const std::string &want, const std::string &got) {
#if defined(__arm__) || defined(__aarch64__)
  std::istringstream a(want), b(got);
  std::string x, y;
  for (int field = 0; a >> x && b >> y; ++field) {
    const bool value = field == 11 || field == 13;  // peakvalue, pooledvalue
    if (value ? std::fabs(std::stod(x) - std::stod(y)) > 1e-5 * std::fabs(std::stod(x)) : x != y)
      return false;
  }
  return !(a >> x) && !(b >> y);
#else
  return want == got;
#endif
}

TEST(GoldenTrace, EveryFrameOfEveryRecordingMatchesTheCommittedTrace) {
  const auto trace = committed();
  ASSERT_EQ(trace.size(), goldenTraceScenarios().size()) << QV_GOLDEN_TRACE;
  for (const std::string &name : goldenTraceScenarios()) {
    const std::vector<std::string> got = goldenTrace(name), &want = trace.at(name);
    ASSERT_EQ(got.size(), want.size()) << name;
    int differing = 0;
    for (size_t f = 0; f < got.size(); ++f)
      if (!sameFrame(want[f], got[f]) && ++differing <= 5)
        ADD_FAILURE() << name << "\n  committed: " << want[f] << "\n  now:       " << got[f];
    EXPECT_EQ(differing, 0) << name;
  }
}

}  // namespace
