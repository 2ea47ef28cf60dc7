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
