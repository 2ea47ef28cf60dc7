// Running the simulator and replay executables from tests.
#pragma once
#include <sys/wait.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

struct ToolResult {
  int status = -1;     // exit status, -1 if it did not exit normally
  std::string output;  // standard output (standard error goes to the test log)
};

inline ToolResult runTool(const std::string &command) {
  ToolResult r;
  FILE *p = popen(command.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) r.output.append(buf, n);
  const int raw = pclose(p);
  if (raw != -1 && WIFEXITED(raw)) r.status = WEXITSTATUS(raw);
  return r;
}

struct ReplayLine {
  double time;
  int angle;  // the published byte: 0..180 direction index, 230 none, 231 loudspeaker
};

// The replay tool's "time_seconds,angle_byte" lines.
inline std::vector<ReplayLine> parseReplay(const std::string &out) {
  std::vector<ReplayLine> lines;
  std::istringstream in(out);
  ReplayLine l{};
  for (std::string line; std::getline(in, line);)
    if (sscanf(line.c_str(), "%lf,%d", &l.time, &l.angle) == 2) lines.push_back(l);
  return lines;
}
