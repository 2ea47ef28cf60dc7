// The simulated board for end-to-end tests: a sandbox with its private ALSA
// configuration, the digital microphones and the line-in fed in real time
// (or faster) from FIFOs, a pseudo-terminal as dev/ttyS1 whose other end is
// the test's host, and the real daemon running in the sandbox.
#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/alsa_sandbox.h"
#include "support/daemon_process.h"
#include "support/sandbox.h"

// What the device sent on the line, decoded.
struct DeviceFrame {
  enum Kind { Position, Levels } kind = Position;
  uint8_t position = 0;    // Position: 0..180 direction index, 230 none, 231 loudspeaker
  uint8_t codes[9] = {};   // Levels: microphones 1..8, line-in
  double atSeconds = 0.0;  // arrival, seconds since the board started
};

using FrameCondition = std::function<bool(const std::vector<DeviceFrame> &)>;

// Splits the device's byte stream into position and level report frames,
// skipping whatever does not check out.
class DeviceFrameParser {
 public:
  void feed(const uint8_t *bytes, size_t len, double atSeconds, std::vector<DeviceFrame> *out);
  size_t skippedBytes() const { return skipped_; }

 private:
  std::vector<uint8_t> pending_;
  size_t skipped_ = 0;
};

// Interleaved S16_LE audio of the simulated inputs.
struct BoardAudio {
  std::vector<int16_t> mics;    // 8 channels
  std::vector<int16_t> lineIn;  // 2 channels, left = loudspeaker reference
};

// A talker at thetaDeg (-90..90 from broadside) who starts after leadSeconds
// and speaks for talkSeconds, over a faint noise floor; the loudspeaker is silent.
BoardAudio talkerAudio(double thetaDeg, double leadSeconds, double talkSeconds);
// Constant-level channels for the level meter: amplitude per microphone and
// of the line-in's left channel, over `seconds`.
BoardAudio levelAudio(const int16_t (&micAmplitude)[8], int16_t lineAmplitude, double seconds);

class SimulatedBoard {
 public:
  // speed: feeder speed factor (1 = real time). After the audio ends the
  // feeders go on with silence, so the capture stays paced.
  SimulatedBoard(const BoardAudio &audio, double speed);
  ~SimulatedBoard();  // stops the daemon (SIGKILL), the feeders and the line
  SimulatedBoard(const SimulatedBoard &) = delete;
  SimulatedBoard &operator=(const SimulatedBoard &) = delete;

  // Seconds of recorded audio per wall-clock second.
  double speed() const { return speed_; }
  double elapsed() const;  // wall-clock seconds since the daemon started

  void send(const std::vector<uint8_t> &bytes);
  // Reads the line for up to `seconds`, returning early when `until` accepts
  // the frames seen so far in this call. Every frame is also kept in frames().
  std::vector<DeviceFrame> read(double seconds,
                                const FrameCondition &until = FrameCondition());
  const std::vector<DeviceFrame> &frames() const { return all_; }
  size_t skippedBytes() const { return parser_.skippedBytes(); }

  bool daemonAlive() { return daemon_ && daemon_->running(); }
  std::string log() const { return daemon_ ? daemon_->out() : std::string(); }  // stdout so far
  // Waits until the daemon's standard output holds `count` copies of `text`.
  bool waitForLog(const std::string &text, int count, double seconds);
  std::string file(const std::string &relative) const { return box_.read(relative); }

 private:
  void startFeeder(int device, std::vector<uint8_t> bytes, unsigned channels, unsigned period);

  Sandbox box_;
  AlsaSandbox alsa_;
  double speed_;
  int master_ = -1;
  int slave_ = -1;
  std::unique_ptr<DaemonProcess> daemon_;
  double startedAt_ = 0.0;
  std::atomic<bool> stopFeeding_{false};
  std::vector<std::string> fifos_;
  std::vector<std::thread> feeders_;
  DeviceFrameParser parser_;
  std::vector<DeviceFrame> all_;
};

// Host command frames.
std::vector<uint8_t> hostCommand(uint8_t group, uint8_t a, uint8_t b);
inline std::vector<uint8_t> getPositionCommand() { return hostCommand(0x0D, 0x00, 0x02); }
inline std::vector<uint8_t> rebootCommand() { return hostCommand(0x0D, 0x00, 0x01); }
inline std::vector<uint8_t> stopTestCommand() { return hostCommand(0x0E, 0x12, 0x01); }
inline std::vector<uint8_t> startTestCommand(uint8_t max, uint8_t min, bool rawDb) {
  return hostCommand(0x0E, static_cast<uint8_t>(max | (rawDb ? 0x80 : 0)), min);
}
