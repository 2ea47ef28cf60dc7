// A private ALSA configuration inside a Sandbox. The daemon's unchanged device
// names ("hw:0,3", "hw:0,2", "hw:0,1") then open PCMs that libasound itself
// provides: the file plugin over the null plugin, reading the capture input of
// device N from <sandbox>/alsa/capture<N> and writing playback to /dev/null.
//
//  - a plain file is read as fast as it is asked for. A read that finds
//    fewer bytes still returns the whole period but fills only the whole
//    frames it found; past the end reads leave the caller's buffer as it was
//    (an empty input therefore reads as the zeros of a fresh buffer);
//  - a FIFO paces the capture: a feeder (tools/feed, quenvarile-feed) writes
//    one period per write on a 48 kHz schedule, and snd_pcm_open blocks until
//    the feeder has opened it; when the feeder closes it, reads behave as
//    past the end of a plain file;
//  - a device without a capture input is absent: its capture open fails
//    (playback opens always and discards what it is given).
//
// The hardware parameters granted are those asked for: 48000 Hz, period 2048
// and buffer 8192 frames for the microphones, 1024 and 4096 for the line.
#pragma once
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/sandbox.h"

class AlsaSandbox {
 public:
  // Writes the configuration, points ALSA_CONFIG_PATH at it and gives devices
  // 1, 2 and 3 an empty capture input (present, reading silence).
  explicit AlsaSandbox(const Sandbox &sandbox);
  ~AlsaSandbox();  // stops the silence feeders, restores the previous ALSA_CONFIG_PATH
  AlsaSandbox(const AlsaSandbox &) = delete;
  AlsaSandbox &operator=(const AlsaSandbox &) = delete;

  const std::string &configPath() const { return config_; }
  // "ALSA_CONFIG_PATH=<config>", for the environment of a child process.
  std::string environment() const { return "ALSA_CONFIG_PATH=" + config_; }
  std::string capturePath(int device) const;

  // The capture input of a device: these bytes in a plain file.
  void setCaptureData(int device, const std::string &bytes) const;
  // The capture input of a device: a FIFO (returned path) to be fed.
  std::string makeCaptureFifo(int device) const;
  // No capture input: opening the device for capture fails.
  void removeDevice(int device) const;
  // Paced silence on a device (a FIFO fed from a thread of this process), for
  // tests that run the daemon without caring about its audio. The feed stops
  // when the reader goes away or this object is destroyed. Ignores SIGPIPE.
  void feedSilence(int device, unsigned channels);

 private:
  std::string dir_;
  std::string config_;
  std::string previous_;
  bool hadPrevious_ = false;
  std::atomic<bool> stopFeeding_{false};
  std::vector<std::string> fifos_;
  std::vector<std::thread> feeders_;
};
