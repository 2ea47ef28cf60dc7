// Sizes, band layout and tuning constants of the voice model. The model works
// on 10 ms frames at 48 kHz and describes each frame by 22 overlapping
// triangular bands on a Bark-like scale.
#pragma once

namespace voice {

constexpr int kFrameSize = 480;                     // samples per call: 10 ms at 48 kHz
constexpr int kWindowSize = 2 * kFrameSize;         // analysis span: previous frame + this frame
constexpr int kSpectrumBins = kWindowSize / 2 + 1;  // 481 bins, 0 Hz .. 24 kHz
constexpr float kBinHz = 50.0f;                     // 48000 / 960
constexpr int kBands = 22;

// Band centres (and triangle corners) in Hz. Band b rises from centre b-1 to
// centre b and falls to centre b+1; band 0 and band 21 are half triangles.
constexpr int kBandEdgeHz[kBands] = {0,    200,  400,  600,   800,   1000, 1200, 1400,
                                     1600, 2000, 2400, 2800,  3200,  4000, 4800, 5600,
                                     6800, 8000, 9600, 12000, 15600, 20000};

// A frame whose mean square is below this (16-bit scale, i.e. an RMS under one
// least significant bit) is silent: the model learns nothing from it and keeps
// its previous gains.
constexpr float kSilentMeanSquare = 1.0f;

// Smallest band energy the noise floor may fall to, so that ratios stay finite.
constexpr float kMinBandEnergy = 1e-3f;

// Each published gain is at least this fraction of the previous frame's gain:
// the suppression releases over a few frames instead of snapping shut.
constexpr float kGainReleaseFloor = 0.6f;

// Decision-directed a-priori SNR: weight of the previous frame's clean-speech
// estimate, and the lowest a-priori SNR (-25 dB) that keeps gains from
// collapsing to zero.
constexpr float kDecisionDirectedWeight = 0.96f;
constexpr float kMinPrioriSnr = 0.00316f;

// Noise floor tracking (minimum-controlled recursive averaging).
constexpr float kEnergySmoothing = 0.7f;    // weight of the old smoothed band energy
constexpr int kMinimumWindowFrames = 80;    // minimum search restarts every 0.8 s
constexpr float kPresenceRatio = 4.0f;      // smoothed energy 6 dB above the minimum: speech
constexpr float kPresenceSmoothing = 0.8f;  // weight of the old speech-presence value
constexpr float kNoiseSmoothing = 0.95f;    // floor averaging weight when speech is absent

// Voice activity: a small network (one hidden layer of kHiddenUnits tanh
// units) on each band's log SNR over the noise floor, now and smoothed over
// about 30 ms and 200 ms, on each band's log energy, on the spectral flux (how
// far the log band energies moved since the last frame) and on the mean log
// SNR over about 1 s. Its weights were fitted to the voice decisions of the
// original model on recorded speech in noise (tools/voice-reference).
constexpr float kShortSnrSmoothing = 0.7f;  // weight of the old value, per 10 ms frame
constexpr float kLongSnrSmoothing = 0.95f;
constexpr float kSlowSnrSmoothing = 0.99f;
constexpr float kMaxLogSnr = 4.0f;        // log10 SNR is clamped to 0..4 (0..40 dB)
constexpr float kLogEnergyScale = 0.25f;  // log10 band energy is scaled by this
constexpr float kFluxSmoothing = 0.9f;
constexpr float kFluxScale = 4.0f;  // mean absolute change of the scaled log energies
// The four per-band sets, flux now and smoothed, slow mean SNR and a constant 1.
constexpr int kActivityInputs = 4 * kBands + 4;
constexpr int kHiddenUnits = 48;

// While the frame does not hold voice, no band gain rises above this: a band
// opens only with voice (and then closes at the release floor's pace).
constexpr float kUnvoicedGainCeiling = 0.5f;

// Room for the real-FFT plan, built inside the state (9888 bytes for 960 points).
constexpr int kFftMemoryBytes = 12288;

}  // namespace voice
