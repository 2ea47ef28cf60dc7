// A host line as slow as the board's UART: two pseudo-terminals joined by a
// relay thread that passes bytes on, in each direction, no faster than a
// given rate. The device end appears at the sandbox's serial device path; the
// host end is a raw tty on which the test (or a sender such as `sb`) plays the
// host. A line written faster than that rate queues up as in a UART's buffer.
#pragma once
#include <atomic>
#include <string>
#include <thread>
#include <vector>

// 115200 baud, 8N1: ten bit times per byte.
constexpr int kUartBytesPerSecond = 115200 / 10;

class PacedLine {
 public:
  explicit PacedLine(int bytesPerSecond);  // inside a Sandbox: links QV_SERIAL_DEVICE
  ~PacedLine();
  PacedLine(const PacedLine &) = delete;
  PacedLine &operator=(const PacedLine &) = delete;

  void send(const std::string &bytes) const;  // host -> device
  // What the device sent, up to and including `until`, or all that came in timeoutMs.
  std::string receiveUntil(const std::string &until, int timeoutMs) const;
  // Runs `sb <args...>` on the host end (messages to sb.log) until it ends;
  // its exit status, or -1 when it was killed after timeoutMs.
  int runSb(const std::vector<std::string> &args, int timeoutMs) const;

 private:
  void relay();

  int rate_;
  int deviceMaster_ = -1, deviceSlave_ = -1, hostMaster_ = -1, hostSlave_ = -1;
  std::atomic<bool> stop_{false};
  std::thread relay_;
};
