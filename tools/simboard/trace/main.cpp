// quenvarile-trace: prints the estimator's golden per-frame trace (see
// golden_trace.h): every recording, or the ones named, each after a line
// "= name".
#include <cstdio>
#include <string>

#include "trace/golden_trace.h"

int main(int argc, char **argv) {
  std::vector<std::string> names(argv + 1, argv + argc);
  if (names.empty()) names = goldenTraceScenarios();
  fputs(goldenTraceHeader().c_str(), stdout);
  for (const std::string &name : names) {
    const std::vector<std::string> lines = goldenTrace(name);
    if (lines.empty()) {
      fprintf(stderr, "quenvarile-trace: no recording called %s\n", name.c_str());
      return 2;
    }
    printf("= %s\n", name.c_str());
    for (const std::string &line : lines) printf("%s\n", line.c_str());
  }
  return 0;
}
