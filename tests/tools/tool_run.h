// Running the simulator and replay executables from tests.
#pragma once
#include <sys/wait.h>

#include <cstdio>
#include <string>

struct ToolResult {
  int status = -1;     // exit status, -1 if it did not exit normally
  std::string output;  // standard output (standard error goes to the test log)
};

inline ToolResult runTool(const std::string &command) {
  ToolResult r;
  if (FILE *p = popen(command.c_str(), "r")) {
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) r.output.append(buf, n);
    const int raw = pclose(p);
    r.status = raw != -1 && WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  return r;
}
