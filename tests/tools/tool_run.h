// Running the simulator and replay executables from tests.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

struct ToolResult {
  int status;          // exit status, -1 if it did not exit normally
  std::string output;  // standard output (standard error goes to the test log)
};

inline ToolResult runTool(const std::string &command) {
  ToolResult r{-1, ""};
  FILE *p = popen(command.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.output.append(buf, n);
  const int raw = pclose(p);
  if (raw != -1 && WIFEXITED(raw)) r.status = WEXITSTATUS(raw);
  return r;
}

struct ReplayLine {
  double time;
  int angle;
};

// Parses the replay tool's "time_seconds,angle_byte" lines.
inline std::vector<ReplayLine> parseReplay(const std::string &out) {
  std::vector<ReplayLine> lines;
  size_t pos = 0;
  while (pos < out.size()) {
    const size_t end = out.find('\n', pos);
    ReplayLine l{};
    if (sscanf(out.c_str() + pos, "%lf,%d", &l.time, &l.angle) == 2) lines.push_back(l);
    if (end == std::string::npos) break;
    pos = end + 1;
  }
  return lines;
}
