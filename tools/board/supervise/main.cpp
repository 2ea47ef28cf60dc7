// quenvarile-supervise: runs the daemon as its child and restarts it when it
// ends or its heartbeat in the shared state segment stops moving, never while
// the segment's update word is 1 (the daemon is replacing its executable and
// reboots the board by itself). Logs each decision on standard output.
//
// After an update the new executable is on trial (its trial mark exists): it
// is kept once it has run with its heartbeat moving for the confirmation
// time; if it ends or stalls before that, or has been started on trial too
// often (board resets included), the executable before the update is put back
// and started instead.
#include <getopt.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "daemon_child.h"
#include "edge_config.h"
#include "restart_policy.h"
#include "segment_view.h"
#include "trial_files.h"

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
      "                            [--stable SECONDS] [--confirm SECONDS] [--trial-starts N]\n"
      "                            [--] [DAEMON [ARGS...]]\n"
      "  runs DAEMON (default %s) in the current directory and restarts it when it ends or\n"
      "  its heartbeat (segment key ftok(\"%s\", 66)) stands still for --stall seconds\n"
      "  (default 15), never while the segment's update word is 1. Restarts wait\n"
      "  --first-delay (1 s), doubled after each daemon that ran less than --stable (60 s),\n"
      "  up to --max-delay (60 s). SIGTERM or SIGINT: stops the daemon (SIGTERM twice) and ends.\n"
      "  While DAEMON_trial exists (an update on trial) the daemon is kept after --confirm\n"
      "  seconds (60) with its heartbeat moving; if it ends or stalls first, or was started\n"
      "  on trial --trial-starts times (3), DAEMON_Bak is put back over DAEMON (the failed\n"
      "  one kept as DAEMON_failed) and started.\n",
      QV_ROOT_DIR "/quenvarile", QV_SHM_KEY_PATH);
}

bool parseSeconds(const char *text, double *out) {
  char *end = nullptr;
  const double value = strtod(text, &end);
  if (end == text || *end != '\0' || value <= 0) return false;
  *out = value;
  return true;
}

// The verdict on a daemon on trial that ended or stalled: the previous
// executable goes back. One line says so.
void rollBack(const std::string &exe, const char *reason) {
  std::string why;
  if (trialRollBack(exe, &why))
    logLine("update rolled back (%s): %s_Bak is %s again, the new one kept as %s_failed", reason,
            exe.c_str(), exe.c_str(), exe.c_str());
  else
    logLine("update on trial %s, but no roll back: %s", reason, why.c_str());
}

}  // namespace

int main(int argc, char **argv) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  RestartPolicy policy;
  TrialPolicy trial;
  double trialStartsLimit = trial.maxStarts;
  const option longOptions[] = {{"stall", required_argument, nullptr, 's'},
                                {"first-delay", required_argument, nullptr, 'f'},
                                {"max-delay", required_argument, nullptr, 'm'},
                                {"stable", required_argument, nullptr, 'b'},
                                {"confirm", required_argument, nullptr, 'c'},
                                {"trial-starts", required_argument, nullptr, 't'},
                                {"help", no_argument, nullptr, 'h'},
                                {nullptr, 0, nullptr, 0}};
  int opt;
  while ((opt = getopt_long(argc, argv, "+h", longOptions, nullptr)) != -1) {
    double *target = opt == 's'   ? &policy.stallSeconds
                     : opt == 'f' ? &policy.firstDelay
                     : opt == 'm' ? &policy.maxDelay
                     : opt == 'b' ? &policy.stableSeconds
                     : opt == 'c' ? &trial.confirmSeconds
                     : opt == 't' ? &trialStartsLimit
                                  : nullptr;
    if (opt == 'h') return usage(stdout), 0;
    if (!target || !parseSeconds(optarg, target)) return usage(stderr), 2;
  }
  trial.maxStarts = int(trialStartsLimit);
  std::vector<std::string> daemon(argv + optind, argv + argc);
  if (daemon.empty()) daemon.push_back(QV_ROOT_DIR "/quenvarile");
  const std::string &exe = daemon[0];

  struct sigaction stop {};
  stop.sa_handler = requestStop;
  sigaction(SIGTERM, &stop, nullptr);
  sigaction(SIGINT, &stop, nullptr);
  signal(SIGPIPE, SIG_IGN);

  SegmentView segment;
  HeartbeatWatch watch;
  pid_t pid = -1;
  double startedAt = 0, startAt = monotonicSeconds(), delay = 0;
  bool toldUpdating = false, onTrial = false;
  std::string how;
  for (; !gStopRequested; usleep(kPollMicros)) {
    const double now = monotonicSeconds();
    SegmentSample sample{};
    const bool present = segmentViewRead(&segment, QV_SHM_KEY_PATH, &sample);
    const bool updating = present && sample.updating == 1;
    if (pid > 0 && daemonChildEnded(pid, &how)) {
      delay = restartDelay(delay, now - startedAt, policy);
      if (onTrial) delay = 0;  // the previous executable goes back at once
      logLine("daemon (pid %d) ended: %s; restart in %.0f s", int(pid), how.c_str(), delay);
      if (onTrial) rollBack(exe, ("its daemon ended: " + how).c_str());
      pid = -1, startAt = now + delay, onTrial = false;
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
      delay = onTrial ? 0 : restartDelay(delay, now - startedAt, policy);
      logLine("daemon (pid %d) ended: %s; restart in %.0f s", int(pid), how.c_str(), delay);
      if (onTrial) rollBack(exe, "its heartbeat stalled");
      pid = -1, startAt = monotonicSeconds() + delay, onTrial = false;
    } else if (pid > 0 && onTrial) {
      const double sinceBeat = watch.changedAt > startedAt ? now - watch.changedAt : -1;
      if (trialVerdict({0, true, false, false, now - startedAt, sinceBeat}, trial) == TRIAL_KEEP) {
        if (trialKeep(exe))
          logLine("update kept: the daemon ran %.0f s with its heartbeat moving", now - startedAt);
        else
          logLine("update kept, but its trial mark stays: %s", strerror(errno));
        onTrial = false;
      }
    } else if (pid < 0 && now >= startAt) {
      if (updating) {
        if (!toldUpdating) logLine("update in progress: not restarting the daemon");
        toldUpdating = true;
        continue;
      }
      const int starts = trialStarts(exe);
      onTrial = starts != kTrialNone;
      if (onTrial && trialVerdict({starts, false, false, false, 0, -1}, trial) == TRIAL_ROLLBACK) {
        rollBack(exe, starts < 0 ? "with an unreadable count"
                                 : ("after " + std::to_string(starts) + " starts").c_str());
        onTrial = false;
      } else if (onTrial && !trialCountStart(exe, starts + 1)) {
        logLine("cannot count the start on trial (%s): rolling back", strerror(errno));
        rollBack(exe, "with a count that cannot be written");
        onTrial = false;
      }
      pid = daemonChildStart(daemon);
      if (pid < 0) {
        logLine("cannot start %s", daemon[0].c_str());
        return 1;
      }
      logLine("started %s (pid %d)%s", daemon[0].c_str(), int(pid),
              onTrial ? ", on trial after an update" : "");
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
