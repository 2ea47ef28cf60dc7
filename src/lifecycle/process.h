// Process-wide state of the daemon, the exit routine and the signal handlers.
// The audio side's words (recycleCapture, startDelay, readiFunc) live with
// the endpoints in audio/audioprocess.h, which comes with this header.
#pragma once
#include <cstdint>

#include "audio/audioprocess.h"

extern uint32_t runSeconds;   // seconds since the main loop began
extern int32_t inAborting;    // the first abort signal has been handled
extern int32_t mainRun;       // the heartbeat loop runs while nonzero
extern int32_t angleProcRun;  // run flag of the angle service thread

// Closes every open PCM (digital mic, analog mic, line-in, line-out) and exits.
[[noreturn]] void program_exit(int status);

void abort_signal_handler(int sig);
