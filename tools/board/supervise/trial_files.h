// The files of an update on trial, beside the daemon's executable EXE:
// EXE_trial (the mark, holding the number of starts on trial), EXE_Bak (the
// executable before the update) and EXE_failed (an update that was rolled
// back, kept for diagnosis). Every change is flushed, directory included, so
// that a power cut between any two steps leaves a runnable EXE.
#pragma once
#include <string>

constexpr int kTrialNone = -2;        // no mark: not on trial
constexpr int kTrialUnreadable = -1;  // a mark whose count cannot be read

// Exit status of a process ended by the power-cut seam (sandbox builds, with
// QV_SANDBOX_TRIAL_CUT_AFTER=<step> in the environment; steps in trial_files.cpp).
constexpr int kTrialPowerCutExitStatus = 86;

// The count in the mark, kTrialNone or kTrialUnreadable.
int trialStarts(const std::string &exe);

// Writes the new count into the mark (a new file renamed over the old one).
bool trialCountStart(const std::string &exe, int starts);

// The update is kept: removes the mark.
bool trialKeep(const std::string &exe);

// Puts EXE_Bak back over EXE with one rename() (EXE itself first gets the
// second name EXE_failed), then removes the mark. Without EXE_Bak there is
// nothing to go back to: only the mark goes. False, with *why, on a failure.
bool trialRollBack(const std::string &exe, std::string *why);
