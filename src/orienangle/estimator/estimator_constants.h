// Constants of the direction estimator: array geometry, analysis sizes, ring
// lengths, thresholds and the precision-carrying literals. Each is said once here.
#pragma once
#include <cstdint>

// ---- Frame ----
// The capture format's frame (the daemon's frame geometry, which the angle
// module checks against these two at compile time).
constexpr int ORIEN_MIC_NUM = 8;
constexpr int ORIEN_FRAME_SIZE = 960;  // samples per channel per frame, 20 ms at 48 kHz

// ---- Direction byte status codes ----
constexpr int ANGLE_NONE = 230;     // no direction known
constexpr int ANGLE_FAR_END = 231;  // the loudspeaker is playing, updates suspended

// ---- Array geometry and angle grid ----
constexpr int ORIEN_ANGLE_NUM = 181;       // candidate directions, index a = theta + 90 degrees
constexpr int ORIEN_ANGLE_BROADSIDE = 90;  // index of theta = 0
// Radians are formed with this truncated pi everywhere (not full precision).
constexpr double ORIEN_PI = 3.1415926;
// Phase per bin of one microphone spacing at sin(theta) = 1, times c:
// 2 * 3.1415926 * 48000 Hz * 0.03 m / 4096, kept as this one double literal.
constexpr double ORIEN_PHASE_K = 2.208932296875;
constexpr double ORIEN_SOUND_SPEED = 346.0;  // m/s
constexpr double ORIEN_MIC_CENTRE = 3.5;     // microphone m sits at (m - 3.5) spacings

// ---- Spectral analysis ----
constexpr int ORIEN_FFT_SIZE = 4096;                                // transform points
constexpr int ORIEN_SPECTRUM_BINS = ORIEN_FFT_SIZE / 2 + 1;         // bins 0..2048 kept
constexpr int ORIEN_HISTORY = 2880;                                 // three past frames per stream
constexpr int ORIEN_BLOCK_LIVE = ORIEN_HISTORY + ORIEN_FRAME_SIZE;  // 3840 samples; 256 zeros pad
constexpr float ORIEN_FFT_SCALE = 1.0f / 4096.0f;  // forward transform scaled by 1/N
constexpr int ORIEN_AUX_FFT_SIZE = 1920;  // second plan of the one-time build (not used per frame)
constexpr int ORIEN_AUX_WINDOW = 960;     // short window of the one-time build (not used per frame)
constexpr int ORIEN_DCT_SIZE = 22;        // cosine table of the one-time build (not used per frame)

// ---- Bands and bins ----
constexpr int ORIEN_BANDS = 22;           // band arrays: 17 live bands, 17..21 always 0
constexpr int ORIEN_LIVE_BANDS = 17;      // bands with edges in the band-edge table
constexpr int ORIEN_BAND_EDGES = 19;      // entries of the band-edge table (last one unused)
constexpr int ORIEN_BINS = 500;           // bins 0..499 (0 .. 5.85 kHz) are tracked and steered
constexpr int ORIEN_SCAN_FIRST_BIN = 20;  // 234 Hz: lowest bin selected for the scan
constexpr int ORIEN_LOW_BIN_LAST = 179;   // bins 20..179 (up to 2.1 kHz) counted in binHitCount

// ---- Rings ----
constexpr int ORIEN_SLOTS = 100;    // per-frame result rings (2 s)
constexpr int ORIEN_PEAKS = 3;      // candidate peaks kept per frame
constexpr int ORIEN_BAND_RING = 8;  // frames of smoothed band energies

// ---- Noise tracker (voice-metric noise estimator) ----
constexpr float NOISE_NEW_WEIGHT = 0.8f;                     // weight of this frame's energy
constexpr float NOISE_OLD_WEIGHT = 1.0f - NOISE_NEW_WEIGHT;  // 0.19999999 in single precision
constexpr double NOISE_ENERGY_FLOOR = 0.01;                  // compared in double
constexpr float NOISE_ENERGY_FLOOR_F = 0.01f;                // stored floor
constexpr double NOISE_ENERGY_FLOOR_HALF = 0.005;  // half the floor, feeds the long average
constexpr double NOISE_BIN_FLOOR = 0.0001;         // per-bin floor, compared in double
constexpr float NOISE_BIN_FLOOR_F = 0.0001f;       // stored per-bin floor
constexpr uint32_t NOISE_STARTUP_FRAMES = 10;      // updates during which noise follows energy
constexpr double NOISE_SNR_OFFSET_DB = 0.1875;     // rounding offset of the SNR quantiser
constexpr double NOISE_SNR_STEP_DB = 0.375;        // SNR quantiser step
constexpr int NOISE_SNR_INDEX_MAX = 89;            // last voice-metric table index (33.19 dB)
constexpr int NOISE_METRIC_FIRST_BAND = 1;         // voice metric, total energy and dB levels
constexpr int NOISE_METRIC_BANDS = 16;             //   use channels 1..16
constexpr int NOISE_METRIC_FORCED = 33;            // V at or below: frame is noise
constexpr double NOISE_LOW_ENERGY = 100.0;         // total energy below: frame is noise
constexpr double NOISE_MIN_TOTAL = 0.01;         // total energy must exceed this to count as steady
constexpr float NOISE_STEADY_DEVIATION = 28.0f;  // dB summed over 16 bands: steady spectrum below
constexpr int NOISE_STEADY_FRAMES = 29;          // steady frames needed: update when count exceeds
constexpr int NOISE_HYSTERESIS_FRAMES = 6;       // unchanged counts tolerated before clearing
constexpr double NOISE_ALPHA_MAX = 0.99;         // slowest long-term dB average (loud frames)
constexpr float NOISE_ALPHA_MAX_F = 0.99f;
constexpr double NOISE_BETA_MIN = 0.009999990463256836;  // 1 - 0.99f, in double
constexpr double NOISE_ALPHA_MIN = 0.5;       // fastest long-term dB average (quiet frames)
constexpr double NOISE_ALPHA_SLOPE = 0.0245;  // alpha per dB of total energy below 50 dB
constexpr double NOISE_ALPHA_REF_DB = 50.0;
constexpr double NOISE_UPDATE_RATE = 0.1;  // noise moves this far toward energy per update
constexpr double NOISE_UPDATE_KEEP = 0.9;

// ---- Frame analysis ----
constexpr double SMOOTH_NEW = 0.2;             // recursive averages of bin power and band energy,
constexpr double SMOOTH_OLD = 0.8;             //   in double, stored as float
constexpr int SPEECH_LOW_LAST_BAND = 8;        // low group: bands 0..8
constexpr int SPEECH_HIGH_FIRST_BAND = 13;     // high group: bands 13..16 (9..12 take no part)
constexpr double SPEECH_LOW_MIN_DB = 6.0;      // low-band SNR needed for speech
constexpr double SPEECH_HIGH_MAX_DB = 10.0;    // a high-band excess above this ...
constexpr double SPEECH_HIGH_MARGIN_DB = 5.0;  // ... and within 5 dB of the low one vetoes

// ---- Spatial scan ----
// The scan runs in single precision: weights, denominators and the sums are floats.
constexpr float SCAN_NOISE_EPS = 0.000001f;  // keeps the SNR weight finite
constexpr float SCAN_POWER_EPS = 0.0001f;    // keeps the power normalisation finite

// ---- Loudspeaker activity detector ----
constexpr int FAR_END_ACTIVE_METRIC = 38;  // voice metric below: reference inactive
constexpr int FAR_END_LATCH_ON = 65;       // active frames of 100 above: latch
constexpr int FAR_END_LATCH_OFF =
    19;  // active frames of 100 below (and this one inactive): release

// ---- Per-frame pipeline ----
constexpr double PIPE_BAND_FACTOR = 3.0;        // band energy over noise for a band hit (double)
constexpr float PIPE_BIN_NOISE_FACTOR = 3.0f;   // bin power over bin noise (single precision)
constexpr double PIPE_BIN_SMOOTH_FACTOR = 1.5;  // bin power over its smoothed value (double)
constexpr int PIPE_HIT_BANDS = 16;              // bands 0..15 take part in the band test
constexpr int PIPE_LOW_HIT_LAST = 8;            // lowBandHitCount counts bands 0..8
constexpr int PIPE_DENOISE_BLOCK = 480;         // samples per voice-model call (half a frame)
constexpr int PIPE_DENOISE_GAINS = 22;          // band gains the voice model leaves in its output
constexpr float PIPE_VOICE_PROB = 0.5f;         // voice probability above: voiced
constexpr float PIPE_GAIN_OPEN = 0.5f;          // a band gain above this counts as open
constexpr int PIPE_OPEN_GAINS = 3;              // open gains among 1..15 for a voiced half
constexpr int PIPE_GAIN_LAST = 15;              // gains 1..15 are counted (0 and 16..21 are not)
static_assert(PIPE_GAIN_LAST < PIPE_DENOISE_GAINS, "counted gains lie within the 22 band gains");
constexpr int PIPE_SILENCE_RUN = 10;        // consecutive samples within +-1 make digital silence
constexpr float PIPE_SILENCE_LIMIT = 2.0f;  // |x| < 2 truncates to -1, 0 or 1
constexpr int PIPE_HOLD_AFTER_SILENCE = 2;  // holdCount after a silent frame
constexpr int PIPE_HOLD_ANALYSE = 5;        // holdCount at which analysis resumes
constexpr uint32_t PIPE_MIN_BINS = 30;      // selected bins needed for a scan (strictly more)
constexpr int PIPE_RECORD_ONLY_FRAMES = 4;  // frames after a decision that only record
constexpr int PIPE_FAR_END_WINDOW = 50;     // loudspeaker test window (1 s)
constexpr int PIPE_FAR_END_FRAMES = 16;     // active frames in the window above: suspend
constexpr int PIPE_MIN_IDLE_FOR_POOL = 9;   // pooling from the 10th frame after a decision
constexpr int PIPE_NEAR_FRAMES = 4;         // near pass: the 4 frames before this one
constexpr int PIPE_POOL_FRAMES = 80;        // pooled span: this frame and 79 before it
constexpr int PIPE_AGREE_DEGREES = 6;       // best peaks this close agree
constexpr int PIPE_NEAR_MIN_POOLED = 2;     // near pass must pool more than this
constexpr int PIPE_MIN_LAST_AGE = 49;       // acceptance: oldest pooled age above this
constexpr int PIPE_MIN_POOLED = 19;         //   pooled frames above this
constexpr int PIPE_MIN_VOICED = 19;         //   voiced frames above this
constexpr int PIPE_MIN_SPEECH = 11;         //   band-SNR speech frames above this
constexpr int PIPE_JUMP_DEGREES = 5;        // farther than this: jump to the new peak
constexpr int PIPE_SNAP_DEGREES = 1;        // this close: take the new peak
constexpr int PIPE_SLOW_IDLE = 80;          // below: step 1 degree; from here on 2
constexpr int PIPE_STALE_FRAMES = 150;      // frames without a decision before dropping it
constexpr int PIPE_DENOISE_RESET_FRAMES =
    5000;  // idle frames (100 s) before the voice model restarts
