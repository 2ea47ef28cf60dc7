// A real YMODEM sender on the other end of a line: Debian's `sb` (lrzsz) on
// one side of a pseudo-terminal, the board on the other.
#pragma once
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

class SbLink {
 public:
  enum BoardEnd {
    kBoardOnMaster,     // the board uses boardFd() (non-blocking, like its tty); sb on the slave
    kBoardOpensDevice,  // the board opens boardPath() itself; sb on the master
  };
  explicit SbLink(BoardEnd end = kBoardOnMaster);
  // A line with `sb <options...> <file>` already started on it.
  SbLink(const std::vector<std::string> &options, const std::string &file);
  ~SbLink();  // kills sb if it still runs
  SbLink(const SbLink &) = delete;
  SbLink &operator=(const SbLink &) = delete;

  int boardFd() const { return master_; }
  std::string boardPath() const { return slavePath_; }
  // The host writes on the line (before sb runs).
  void hostSend(const std::vector<uint8_t> &bytes);
  // Starts `sb <options...> <file>` in the current directory, its messages to sb.log.
  void start(const std::vector<std::string> &options, const std::string &file);
  bool waitExit(int timeoutMs);  // true once sb has ended
  void kill();
  // After sb has ended: what the board sent that sb did not read, up to the
  // first `until` (or all that came within timeoutMs).
  std::string hostReceived(int timeoutMs, const std::string &until);

 private:
  int hostFd() const { return end_ == kBoardOnMaster ? slave_ : master_; }
  BoardEnd end_;
  int master_ = -1;
  int slave_ = -1;
  std::string slavePath_;
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
