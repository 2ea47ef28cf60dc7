// The supervisor's decisions on an update on trial, and its trial files under
// power cuts at every step.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "restart_policy.h"
#include "support/sandbox.h"
#include "trial_files.h"

namespace {

TEST(TrialVerdict, KeepsOnlyAfterTheConfirmationWithTheHeartbeatMovingAndGoesBackOtherwise) {
  const TrialPolicy policy;  // 60 s, 3 starts, a beat within 3 s
  struct Case {
    const char *what;
    TrialLook look;
    TrialVerdict verdict;
  } cases[] = {
      {"first start", {0, false, false, false, 0, -1}, TRIAL_GOES_ON},
      {"third start (a reset during the trial)", {2, false, false, false, 0, -1}, TRIAL_GOES_ON},
      {"fourth start", {3, false, false, false, 0, -1}, TRIAL_ROLLBACK},
      {"unreadable count", {-1, false, false, false, 0, -1}, TRIAL_ROLLBACK},
      {"beating, before the confirmation", {1, true, false, false, 59.9, 0.5}, TRIAL_GOES_ON},
      {"beating at the confirmation", {1, true, false, false, 60, 0.5}, TRIAL_KEEP},
      {"never beat", {1, true, false, false, 120, -1}, TRIAL_GOES_ON},
      {"beat long ago", {1, true, false, false, 61, 10}, TRIAL_GOES_ON},
      {"ended at once", {1, true, true, false, 0.1, -1}, TRIAL_ROLLBACK},
      {"ended after beating", {1, true, true, false, 59, 0.5}, TRIAL_ROLLBACK},
      {"stalled", {1, true, false, true, 30, 15}, TRIAL_ROLLBACK},
  };
  for (const Case &c : cases) EXPECT_EQ(trialVerdict(c.look, policy), c.verdict) << c.what;
}

// A cut after any step leaves root/quenvarile the old or the new executable,
// the new one only with its mark (so that the next start still judges it),
// and a mark whose count can be read; doing the interrupted step again
// finishes it.
TEST(TrialPowerCut, AfterEveryStepTheExecutableRunsAndTheStepCanBeDoneAgain) {
  const std::string exe = "root/quenvarile";
  for (int step = 1; step <= 9; ++step) {
    SCOPED_TRACE("cut after step " + std::to_string(step));
    Sandbox box;
    box.write("root/quenvarile", "new");
    box.write("root/quenvarile_Bak", "old");
    box.write("root/quenvarile_trial", "1\n");
    std::string why;
    const auto act = [&] {
      if (step <= 3) return trialCountStart(exe, 2);
      if (step <= 5) return trialKeep(exe);
      return trialRollBack(exe, &why);
    };
    EXPECT_EXIT((setenv("QV_SANDBOX_TRIAL_CUT_AFTER", std::to_string(step).c_str(), 1), act()),
                testing::ExitedWithCode(kTrialPowerCutExitStatus), "");
    const std::string running = box.read("root/quenvarile");
    const int starts = trialStarts(exe);
    EXPECT_TRUE(running == "old" || (running == "new" && (starts >= 0 || step >= 4)));
    EXPECT_NE(starts, kTrialUnreadable);
    unsetenv("QV_SANDBOX_TRIAL_CUT_AFTER");
    if (step <= 3) {
      EXPECT_TRUE(act());
      EXPECT_EQ(trialStarts(exe), 2);
    } else if (step <= 5) {
      EXPECT_EQ(starts, kTrialNone);
    } else {
      act();  // with the Bak renamed already, only the mark goes
      EXPECT_EQ(box.read("root/quenvarile"), "old");
      EXPECT_EQ(box.read("root/quenvarile_failed"), "new");
      EXPECT_EQ(trialStarts(exe), kTrialNone);
    }
  }
}

}  // namespace
