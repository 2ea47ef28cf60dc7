#include "trial_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The steps, numbered for the power-cut seam.
enum TrialStep {
  kCountWritten = 1,
  kCountRenamed,
  kCountFlushed,
  kMarkRemoved,
  kKeepFlushed,
  kFailedKept,
  kBakRenamed,
  kRollBackMarkRemoved,
  kRollBackFlushed
};

bool after(bool ok, TrialStep step) {
#if QV_UPDATE_POWER_CUT_SEAM
  // Test seam: the process ends at once after the step named, as at a power cut.
  const char *cut = getenv("QV_SANDBOX_TRIAL_CUT_AFTER");
  if (ok && cut && atoi(cut) == step) _exit(kTrialPowerCutExitStatus);
#else
  (void)step;
#endif
  return ok;
}

std::string directoryOf(const std::string &path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

bool syncPath(const std::string &path, int flags) {
  const int fd = open(path.c_str(), flags | O_CLOEXEC);
  const bool ok = fd >= 0 && fsync(fd) == 0;
  if (fd >= 0) close(fd);
  return ok;
}

bool syncDirectory(const std::string &exe) {
  return syncPath(directoryOf(exe), O_RDONLY | O_DIRECTORY);
}

bool fail(std::string *why, const std::string &what) {
  *why = what + ": " + strerror(errno);
  return false;
}

// A copy of from, flushed, where the file system has no hard links.
bool copyFile(const std::string &from, const std::string &to) {
  const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0755);
  bool ok = in >= 0 && out >= 0;
  char buf[4096];
  for (ssize_t n; ok && (n = read(in, buf, sizeof buf)) != 0;)
    ok = n > 0 && write(out, buf, size_t(n)) == n;
  ok = ok && fsync(out) == 0;
  if (in >= 0) close(in);
  if (out >= 0) close(out);
  return ok;
}

}  // namespace

int trialStarts(const std::string &exe) {
  const int fd = open((exe + "_trial").c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? kTrialNone : kTrialUnreadable;
  char text[16] = {};
  const ssize_t n = read(fd, text, sizeof text - 1);
  close(fd);
  char *end = nullptr;
  const long starts = n > 0 ? strtol(text, &end, 10) : -1;
  if (n <= 0 || end == text || (*end != '\n' && *end != '\0') || starts < 0 || starts > 1000)
    return kTrialUnreadable;
  return int(starts);
}

bool trialCountStart(const std::string &exe, int starts) {
  const std::string mark = exe + "_trial", next = mark + ".new";
  const std::string text = std::to_string(starts) + "\n";
  const int fd = open(next.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  bool ok =
      fd >= 0 && write(fd, text.data(), text.size()) == ssize_t(text.size()) && fsync(fd) == 0;
  if (fd >= 0) close(fd);
  return after(ok, kCountWritten) &&
         after(rename(next.c_str(), mark.c_str()) == 0, kCountRenamed) &&
         after(syncDirectory(exe), kCountFlushed);
}

bool trialKeep(const std::string &exe) {
  return after(unlink((exe + "_trial").c_str()) == 0, kMarkRemoved) &&
         after(syncDirectory(exe), kKeepFlushed);
}

bool trialRollBack(const std::string &exe, std::string *why) {
  const std::string bak = exe + "_Bak", failed = exe + "_failed";
  if (access(bak.c_str(), F_OK) == 0) {
    // The failed executable keeps a second name first: EXE is never missing.
    if (unlink(failed.c_str()) != 0 && errno != ENOENT) return fail(why, "remove " + failed);
    const bool kept =
        link(exe.c_str(), failed.c_str()) == 0 || errno == ENOENT || copyFile(exe, failed);
    if (!after(kept, kFailedKept)) return fail(why, "keep " + failed);
    if (!after(rename(bak.c_str(), exe.c_str()) == 0, kBakRenamed))
      return fail(why, "rename " + bak);
  } else {
    *why = "no " + bak + " to go back to";
  }
  const bool unmarked = unlink((exe + "_trial").c_str()) == 0 || errno == ENOENT;
  if (!after(unmarked, kRollBackMarkRemoved)) return fail(why, "remove the trial mark");
  if (!after(syncDirectory(exe), kRollBackFlushed)) return fail(why, "flush " + directoryOf(exe));
  return why->empty();
}
