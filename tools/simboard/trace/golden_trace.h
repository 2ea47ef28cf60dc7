// Golden per-frame trace of the direction estimator: a few short recordings,
// built deterministically by the array simulator, run through the daemon's
// per-frame path, with one text line per frame of what the stages leave in
// the state record. A committed printout of it pins the estimator's behaviour.
#pragma once
#include <string>
#include <vector>

// The recordings, in the order the full trace prints them.
const std::vector<std::string> &goldenTraceScenarios();

// One line per frame of the named recording (empty for an unknown name):
//   frame angle aux bins binhash speech voice metric farend latched peak peakvalue
//   pooled pooledvalue
// frame: index; angle, aux: the two published bytes; bins: selected bins;
// binhash: FNV-1a of the 500 selection flags (hex); speech, voice: the frame's
// band-SNR and voice-model decisions; metric: the microphone tracker's voice
// metric; farend, latched: the loudspeaker detector's frame flag and latch;
// peak: the frame's best spatial peak (230 none) and peakvalue its spectrum
// value there; pooled, pooledvalue: the first maximum of the pooling
// accumulator and its value. Values are printed in full (%.9g).
std::vector<std::string> goldenTrace(const std::string &scenario);

// The header of the printout: the field names and how to regenerate it.
std::string goldenTraceHeader();
