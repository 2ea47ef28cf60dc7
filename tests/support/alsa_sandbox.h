// A private ALSA configuration inside a Sandbox. The daemon's unchanged device
// names ("hw:0,3", "hw:0,2", "hw:0,1") then open libasound's file plugin over
// the null plugin, reading the capture input of device N from
// <sandbox>/alsa/capture<N> and discarding playback.
//
//  - a plain file is read as fast as it is asked for. A read that finds
//    fewer bytes still returns the whole period but fills only the whole
//    frames it found; past the end reads leave the caller's buffer as it was
//    (an empty input therefore reads as the zeros of a fresh buffer);
//  - a FIFO paces the capture: a feeder (tools/simboard/feed) writes one period per
//    write on a 48 kHz schedule, and snd_pcm_open blocks until the feeder has
//    opened it; once it is closed, reads behave as past the end of a file;
//  - a device without a capture input is absent: its capture open fails.
//
// The hardware parameters granted are those asked for.
#pragma once
#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "feed.h"
#include "support/sandbox.h"

class AlsaSandbox {
 public:
  // Writes the configuration, points ALSA_CONFIG_PATH at it and gives devices
  // 1, 2 and 3 an empty capture input (present, reading silence).
  explicit AlsaSandbox(const Sandbox &sandbox);
  ~AlsaSandbox();  // stops the feeders, restores the previous ALSA_CONFIG_PATH
  AlsaSandbox(const AlsaSandbox &) = delete;
  AlsaSandbox &operator=(const AlsaSandbox &) = delete;

  // "ALSA_CONFIG_PATH=<config>", for the environment of a child process.
  std::string environment() const { return "ALSA_CONFIG_PATH=" + config_; }
  // The capture input of a device: these bytes in a plain file.
  void setCaptureData(int device, const std::string &bytes) const;
  // No capture input: opening the device for capture fails.
  void removeDevice(int device) const;
  // Paced S16_LE `samples` on a device (a FIFO fed from a thread of this
  // process), then silence; stops when the reader goes away or this object is
  // destroyed. Ignores SIGPIPE.
  void feed(int device, unsigned channels, std::vector<uint8_t> samples, FeedOptions options = {});
  void feedSilence(int device, unsigned channels) { feed(device, channels, {}); }

 private:
  std::string capturePath(int device) const { return dir_ + "/capture" + std::to_string(device); }
  std::string dir_, config_;
  std::optional<std::string> previous_;
  std::atomic<bool> stopFeeding_{false};
  std::vector<std::string> fifos_;
  std::vector<std::thread> feeders_;
};
