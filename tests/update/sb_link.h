// A real YMODEM sender on the other end of a line: Debian's `sb` (lrzsz) runs
// with its standard input and output on the slave side of a pseudo-terminal;
// the board's side is the master.
#pragma once
#include <sys/types.h>

#include <string>
#include <vector>

class SbLink {
 public:
  // Starts `sb <options...> <file>` in the current directory; its messages go
  // to sb.log there.
  SbLink(const std::vector<std::string> &options, const std::string &file);
  ~SbLink();  // kills sb if it still runs
  SbLink(const SbLink &) = delete;
  SbLink &operator=(const SbLink &) = delete;

  int boardFd() const { return master_; }  // non-blocking, like the board's tty
  bool waitExit(int timeoutMs);            // true once sb has ended
  void kill();
  // After sb has ended: what the board sent that sb did not read, up to the
  // first `until` (or all that came within timeoutMs).
  std::string hostReceived(int timeoutMs, const std::string &until);

 private:
  int master_ = -1;
  int slave_ = -1;
  pid_t pid_ = -1;
};

// Callbacks of the receiver on an SbLink that also record everything sent.
namespace sbwire {
void attach(int boardFd);
int send(const uint8_t *buf, int len);
int recv(uint8_t *buf, int len);
std::string sent();  // bytes sent by the board so far
}  // namespace sbwire

// Polls cond every 10 ms for up to timeoutMs; true when it held.
template <class Cond>
bool waitFor(Cond cond, int timeoutMs);

#include <unistd.h>
template <class Cond>
bool waitFor(Cond cond, int timeoutMs) {
  for (int waited = 0; waited <= timeoutMs; waited += 10) {
    if (cond()) return true;
    usleep(10000);
  }
  return cond();
}
