// A pseudo-terminal standing in for the host line: the slave appears at the
// sandbox's serial device path, the test plays the host on the master.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "support/eventually.h"

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes a, const Bytes &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class PtyLine {
 public:
  PtyLine();  // inside a Sandbox: links QV_SERIAL_DEVICE to the slave
  ~PtyLine();
  PtyLine(const PtyLine &) = delete;
  PtyLine &operator=(const PtyLine &) = delete;

  const std::string &slavePath() const { return slavePath_; }
  int hostFd() const { return master_; }                    // the host's end, for a relay
  void send(const Bytes &bytes) const;                      // host -> device
  Bytes receive(size_t count, int timeoutMs = 2000) const;  // up to count bytes
  Bytes receiveAll(int quietMs = 50) const;                 // until the line is quiet
  std::string receiveUntil(const std::string &until, int timeoutMs) const;  // text seen or time out

 private:
  int master_ = -1;
  int slave_ = -1;  // kept open so the line never hangs up while the device reopens
  std::string slavePath_;
};
