// The one call the audio side makes outside itself. It is declared here so
// that audio includes nothing above it; the lifecycle defines it, and the
// build names the lifecycle as audio's link-only dependency.
#pragma once

// The exit routine (lifecycle/process.cpp): a fatal PCM error ends the
// process through it, so that every open PCM is closed first.
[[noreturn]] void program_exit(int status);
