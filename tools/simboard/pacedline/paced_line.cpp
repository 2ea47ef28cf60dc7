#include "paced_line.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

int runPacedSb(int lineFd, int bytesPerSecond, const std::vector<std::string> &args, int timeoutMs,
               const LineTamper &tamper, const std::function<bool()> &stop, int *stalledMs) {
  if (stalledMs) *stalledMs = 0;
  termios raw{};
  cfmakeraw(&raw);
  int host = -1, sbEnd = -1;
  if (openpty(&host, &sbEnd, nullptr, &raw, nullptr) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    const int log = open("sb.log", O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(sbEnd, 0);
    dup2(sbEnd, 1);
    dup2(log, 2);
    std::vector<char *> argv{const_cast<char *>("sb")};
    for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execvp("sb", argv.data());
    _exit(127);
  }
  // Each direction queues what it reads and earns bytesPerSecond of sending
  // per second while something waits; an idle line earns nothing. Once sb has
  // ended, what it wrote still goes on to the device, and the device's answers
  // stay on the line for the test.
  struct Direction {
    int from, to;
    std::string queue;
    double credit;
  } dirs[] = {{host, lineFd, {}, 0}, {lineFd, host, {}, 0}};
  for (const Direction &d : dirs) fcntl(d.from, F_SETFL, fcntl(d.from, F_GETFL) | O_NONBLOCK);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  auto last = std::chrono::steady_clock::now();
  size_t fromHost = 0;
  int status = 0;
  for (bool ended = false, more = true; !ended || more;) {
    ended = ended || waitpid(pid, &status, WNOHANG) == pid;
    pollfd p[] = {{dirs[0].from, POLLIN, 0}, {dirs[1].from, POLLIN, 0}};
    poll(p, ended ? 1 : 2, 1);
    const auto now = std::chrono::steady_clock::now();
    if (!ended && (now > end || (stop && stop()))) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
      status = -1;
      break;
    }
    const double seconds = std::chrono::duration<double>(now - last).count();
    last = now;
    if (stalledMs && !dirs[0].queue.empty())
      *stalledMs = std::max(*stalledMs, static_cast<int>(seconds * 1000));
    for (Direction &d : dirs) {
      char buf[4096];
      const ssize_t n = ended && d.from != host ? 0 : read(d.from, buf, sizeof buf);
      if (n > 0 && d.from == host && tamper) {
        std::string bytes(buf, static_cast<size_t>(n));
        tamper(&bytes, fromHost);
        fromHost += static_cast<size_t>(n);
        d.queue += bytes;
      } else if (n > 0) {
        d.queue.append(buf, static_cast<size_t>(n));
      }
      d.credit = d.queue.empty() ? 0 : d.credit + seconds * bytesPerSecond;
      const size_t due = std::min(d.queue.size(), static_cast<size_t>(d.credit));
      const ssize_t w = std::max<ssize_t>(due > 0 ? write(d.to, d.queue.data(), due) : 0, 0);
      d.queue.erase(0, static_cast<size_t>(w));
      d.credit -= static_cast<double>(w);
      if (d.from == host) more = n > 0 || !d.queue.empty();
    }
  }
  close(host);
  close(sbEnd);
  return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
