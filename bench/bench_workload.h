// Recorded-like input for the benchmarks: a synthetic talker heard by the
// 8-microphone array from one direction with independent pink noise at every
// microphone, quantised to 16-bit sample values as the capture path delivers
// them, cut into the estimator's 20 ms frames; plus a quiet line-in reference.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orienangle/estimator/estimator.h"

class BenchRecording {
 public:
  // `seconds` of speech from thetaDeg (degrees from broadside), noise snrDb
  // below the talker's active level of -30 dBFS.
  BenchRecording(double seconds, double thetaDeg, double snrDb, uint32_t seed);

  size_t frameCount() const { return frames_; }
  // 8 planes of 960 floats.
  const float *frame(size_t i) const { return mics_.data() + (i % frames_) * kFrameFloats; }
  // 960 floats of the loudspeaker reference (low noise: the loudspeaker is idle).
  const float *reference(size_t i) const {
    return reference_.data() + (i % frames_) * ORIEN_FRAME_SIZE;
  }

 private:
  static constexpr size_t kFrameFloats = ORIEN_MIC_NUM * ORIEN_FRAME_SIZE;
  size_t frames_;
  std::vector<float> mics_;
  std::vector<float> reference_;
};

// A fresh estimator that has run `frames` frames of the recording through the
// whole pipeline, so that its noise trackers and smoothed powers are settled.
OrienAngleEstimator *benchWarmEstimator(const BenchRecording &rec, size_t frames);

// Makes the coming frame select every bin 20..499 as far as its power allows:
// the bin noise floor and the smoothed bin power are set low, so that the bin
// selection's two tests pass (the worst case: the scan runs over all 480 bins).
void benchOpenAllBins(OrienAngleEstimator *est);

// Marks every bin 20..499 selected, as the bin selection does for a frame in
// which all of them pass.
void benchSelectAllBins(OrienAngleEstimator *est);
