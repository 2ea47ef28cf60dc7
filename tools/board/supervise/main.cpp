// quenvarile-supervise: runs the daemon as its child and restarts it when it
// ends or its heartbeat in the shared state segment stops moving, never while
// the segment's update word is 1 (the daemon is replacing its executable and
// reboots the board by itself). Logs each decision on standard output.
#include <getopt.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "daemon_child.h"
#include "edge_config.h"
#include "restart_policy.h"
#include "segment_view.h"

namespace {

constexpr useconds_t kPollMicros = 250000;
constexpr double kStopGraceSeconds = 3;  // two SIGTERMs take 0.5 s; then SIGKILL

volatile sig_atomic_t gStopRequested = 0;
void requestStop(int) { gStopRequested = 1; }

double monotonicSeconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return double(t.tv_sec) + t.tv_nsec * 1e-9;
}

void logLine(const char *format, ...) {
  va_list args;
  va_start(args, format);
  fputs("quenvarile-supervise: ", stdout);
  vprintf(format, args);
  fputc('\n', stdout);
  va_end(args);
}

void usage(FILE *to) {
  fprintf(
      to,
      "usage: quenvarile-supervise [--stall SECONDS] [--first-delay SECONDS] [--max-delay "
      "SECONDS]\n"
      "                            [--stable SECONDS] [--] [DAEMON [ARGS...]]\n"
      "  runs DAEMON (default %s) in the current directory and restarts it when it ends or\n"
      "  its heartbeat (segment key ftok(\"%s\", 66)) stands still for --stall seconds\n"
      "  (default 15), never while the segment's update word is 1. Restarts wait\n"
      "  --first-delay (1 s), doubled after each daemon that ran less than --stable (60 s),\n"
      "  up to --max-delay (60 s). SIGTERM or SIGINT: stops the daemon (SIGTERM twice) and ends.\n",
      QV_ROOT_DIR "/quenvarile", QV_SHM_KEY_PATH);
}

bool parseSeconds(const char *text, double *out) {
  char *end = nullptr;
  const double value = strtod(text, &end);
  if (end == text || *end != '\0' || value <= 0) return false;
  *out = value;
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  RestartPolicy policy;
  const option longOptions[] = {{"stall", required_argument, nullptr, 's'},
                                {"first-delay", required_argument, nullptr, 'f'},
                                {"max-delay", required_argument, nullptr, 'm'},
                                {"stable", required_argument, nullptr, 'b'},
                                {"help", no_argument, nullptr, 'h'},
                                {nullptr, 0, nullptr, 0}};
  int opt;
  while ((opt = getopt_long(argc, argv, "+h", longOptions, nullptr)) != -1) {
    double *target = opt == 's'   ? &policy.stallSeconds
                     : opt == 'f' ? &policy.firstDelay
                     : opt == 'm' ? &policy.maxDelay
                     : opt == 'b' ? &policy.stableSeconds
                                  : nullptr;
    if (opt == 'h') return usage(stdout), 0;
    if (!target || !parseSeconds(optarg, target)) return usage(stderr), 2;
  }
  std::vector<std::string> daemon(argv + optind, argv + argc);
  if (daemon.empty()) daemon.push_back(QV_ROOT_DIR "/quenvarile");

  struct sigaction stop {};
  stop.sa_handler = requestStop;
  sigaction(SIGTERM, &stop, nullptr);
  sigaction(SIGINT, &stop, nullptr);
  signal(SIGPIPE, SIG_IGN);

  SegmentView segment;
  HeartbeatWatch watch;
  pid_t pid = -1;
  double startedAt = 0, startAt = monotonicSeconds(), delay = 0;
  bool toldUpdating = false;
  std::string how;
  for (; !gStopRequested; usleep(kPollMicros)) {
    const double now = monotonicSeconds();
    SegmentSample sample{};
    const bool present = segmentViewRead(&segment, QV_SHM_KEY_PATH, &sample);
    const bool updating = present && sample.updating == 1;
    if (pid > 0 && daemonChildEnded(pid, &how)) {
      delay = restartDelay(delay, now - startedAt, policy);
      logLine("daemon (pid %d) ended: %s; restart in %.0f s", int(pid), how.c_str(), delay);
      pid = -1, startAt = now + delay;
    } else if (pid > 0 && heartbeatStalled(&watch, present, sample.heartbeat, now, policy)) {
      if (updating) {
        if (!toldUpdating)
          logLine("heartbeat still for %.0f s during an update: not restarting",
                  now - watch.changedAt);
        toldUpdating = true;
        continue;
      }
      logLine("heartbeat stalled at %u for %.0f s: stopping the daemon (pid %d)",
              unsigned(sample.heartbeat), now - watch.changedAt, int(pid));
      how = daemonChildStop(pid, kStopGraceSeconds);
      delay = restartDelay(delay, now - startedAt, policy);
      logLine("daemon (pid %d) ended: %s; restart in %.0f s", int(pid), how.c_str(), delay);
      pid = -1, startAt = monotonicSeconds() + delay;
    } else if (pid < 0 && now >= startAt) {
      if (updating) {
        if (!toldUpdating) logLine("update in progress: not restarting the daemon");
        toldUpdating = true;
        continue;
      }
      pid = daemonChildStart(daemon);
      if (pid < 0) {
        logLine("cannot start %s", daemon[0].c_str());
        return 1;
      }
      logLine("started %s (pid %d)", daemon[0].c_str(), int(pid));
      startedAt = now;
      watch = HeartbeatWatch{present, sample.heartbeat, now};
    }
    if (!updating) toldUpdating = false;
  }
  if (pid > 0) {
    logLine("stopping the daemon (pid %d)", int(pid));
    how = daemonChildStop(pid, kStopGraceSeconds);
    logLine("daemon (pid %d) ended: %s", int(pid), how.c_str());
  }
  segmentViewDetach(&segment);
  logLine("stopped");
  return 0;
}
