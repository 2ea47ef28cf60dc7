// Process-wide state of the daemon, the exit routine and the signal handlers.
#pragma once
#include <alsa/asoundlib.h>
#include <cstdint>

using ReadiFunc = snd_pcm_sframes_t (*)(snd_pcm_t *, void *, snd_pcm_uframes_t);

extern int32_t recycleCapture;  // set by SIGUSR1, consumed by the capture workers
extern int32_t startDelay;      // start delay in microseconds for the PCM set-up
extern uint32_t runSeconds;     // seconds since the main loop began
extern int32_t inAborting;      // the first abort signal has been handled
extern ReadiFunc readiFunc;     // frame read used by the capture workers (test seam)
extern int32_t mainRun;         // the heartbeat loop runs while nonzero
extern int32_t angleProcRun;    // run flag of the angle service thread

// Closes every open PCM (digital mic, analog mic, line-in, line-out) and exits.
[[noreturn]] void program_exit(int status);

void abort_signal_handler(int sig);
void recycle_signal_handler(int sig);
