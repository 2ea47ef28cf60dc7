#include "restart_policy.h"

#include <algorithm>

bool heartbeatStalled(HeartbeatWatch *watch, bool present, uint32_t heartbeat, double now,
                      const RestartPolicy &policy) {
  // The segment outlives the daemon, so a restarted one goes on from the old
  // count: only a change counts, never the value.
  if (present && (!watch->seen || heartbeat != watch->value)) {
    if (watch->seen) watch->changedAt = now;
    watch->seen = true;
    watch->value = heartbeat;
  }
  return now - watch->changedAt >= policy.stallSeconds;
}

double restartDelay(double previousDelay, double ranSeconds, const RestartPolicy &policy) {
  if (previousDelay <= 0 || ranSeconds >= policy.stableSeconds) return policy.firstDelay;
  return std::min(previousDelay * 2, policy.maxDelay);
}

TrialVerdict trialVerdict(const TrialLook &look, const TrialPolicy &policy) {
  if (!look.running)  // an unreadable count is taken as used up
    return look.startsBefore < 0 || look.startsBefore >= policy.maxStarts ? TRIAL_ROLLBACK
                                                                          : TRIAL_GOES_ON;
  if (look.ended || look.stalled) return TRIAL_ROLLBACK;
  const bool beating = look.sinceBeat >= 0 && look.sinceBeat <= policy.beatWindow;
  return look.ranSeconds >= policy.confirmSeconds && beating ? TRIAL_KEEP : TRIAL_GOES_ON;
}
