// When the supervisor restarts the daemon: pure decisions on seconds and
// segment samples, no clocks or processes.
#pragma once
#include <cstdint>

struct RestartPolicy {
  double stallSeconds = 15;   // heartbeat unchanged this long: the daemon hangs
  double firstDelay = 1;      // pause before the first restart
  double maxDelay = 60;       // the pause doubles up to this while the daemon keeps failing
  double stableSeconds = 60;  // a daemon that ran this long failed for the first time again
};

// The heartbeat as last seen moving.
struct HeartbeatWatch {
  bool seen = false;
  uint32_t value = 0;
  double changedAt = 0;  // seconds; the daemon's start until the first beat
};

// Notes a sample taken at `now`; true when the heartbeat has stood still for
// the policy's stall time (counted from the daemon's start if it never beat).
bool heartbeatStalled(HeartbeatWatch *watch, bool present, uint32_t heartbeat, double now,
                      const RestartPolicy &policy);

// The pause before the next start, after a daemon that ran `ranSeconds` and
// was started after a pause of `previousDelay` (0 for the first start).
double restartDelay(double previousDelay, double ranSeconds, const RestartPolicy &policy);

// A new executable on trial after an update (its trial mark exists).
struct TrialPolicy {
  double confirmSeconds = 60;  // run this long with the heartbeat moving: the update is kept
  int maxStarts = 3;           // starts on trial, board resets included, before going back
  double beatWindow = 3;       // "moving": a change seen at most this long ago
};

enum TrialVerdict {
  TRIAL_GOES_ON,   // start it, or let it run
  TRIAL_KEEP,      // remove the mark: the update stays
  TRIAL_ROLLBACK,  // put the previous executable back and start that
};

// What the supervisor knows of the daemon on trial at one look.
struct TrialLook {
  int startsBefore;   // starts counted in the mark so far (-1: unreadable)
  bool running;       // false: about to start it
  bool ended;         // it ended by itself
  bool stalled;       // its heartbeat stood still for the stall time
  double ranSeconds;  // since its start
  double sinceBeat;   // since its heartbeat last changed (negative: never changed)
};

TrialVerdict trialVerdict(const TrialLook &look, const TrialPolicy &policy);
