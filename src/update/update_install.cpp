// Update installation: marks the update, gives the host time to start its
// sender, runs the YMODEM receiver on the host line, and on completion
// replaces the executable and reboots, or reports the failure and goes on.
//
// The replacement cannot leave the board without a runnable executable: the
// received file is flushed and checked before anything else changes, the old
// executable keeps a second name, and the new one takes /root/quenvarile in a
// single rename(), which a power cut sees either before or after. With a key
// installed the file must also carry a valid signature by one of the keys.
#include "update/update_install.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/shared_word.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/state_segment.h"
#include "update/update_paths.h"
#include "update/update_signature.h"
#include "update/ymodem.h"

namespace {

constexpr char kReplyOk[] = "ymodem updata ok";  // sent raw, without terminator
constexpr char kReplyErr[] = "ymodem updata err";
constexpr mode_t kExecutableMode = 0755;

// The ELF header a new executable must have: this build's own machine and class.
#if defined(__arm__)
constexpr uint16_t kElfMachine = EM_ARM;
#elif defined(__aarch64__)
constexpr uint16_t kElfMachine = EM_AARCH64;
#elif defined(__x86_64__)
constexpr uint16_t kElfMachine = EM_X86_64;
#elif defined(__i386__)
constexpr uint16_t kElfMachine = EM_386;
#else
#error "no ELF machine number known for this target"
#endif
constexpr unsigned char kElfClass = sizeof(void *) == 8 ? ELFCLASS64 : ELFCLASS32;
constexpr unsigned char kElfData =
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;

// The installation's steps, in order; a power cut may come after any of them.
enum InstallStep {
  kOtaFlushed = 1,
  kOtaChecked,
  kBackupKept,
  kModeSet,
  kTrialMarked,
  kRenamed,
  kDirFlushed
};

void setUpdating(int value) {
  sharedStore(gHostCtrl.isUpdating, value);
  if (StateSegment *segment = velquare_shm_get()) sharedStore(segment->updating, value);
}

void sendText(const char *text) {
  uartSend(reinterpret_cast<const uint8_t *>(text), static_cast<int>(strlen(text)));
}

unsigned senderWaitSeconds() {
#if QV_SANDBOX
  // Test seam: only the sandbox build lets a test shorten the wait.
  if (const char *s = getenv("QV_SANDBOX_UPDATE_WAIT_SECONDS"))
    return static_cast<unsigned>(atoi(s));
#endif
  return kUpdateSenderWaitSeconds;
}

void afterStep(InstallStep step) {
#if QV_UPDATE_POWER_CUT_SEAM
  // Test seam: the process ends at once after the step named, as at a power cut.
  const char *cut = getenv("QV_SANDBOX_UPDATE_CUT_AFTER");
  if (cut && atoi(cut) == step) _exit(kUpdatePowerCutExitStatus);
#else
  (void)step;
#endif
}

bool step(bool ok, InstallStep which, const char *what) {
  if (!ok) printf("update: %s failed (%s)\n", what, strerror(errno));
  if (ok) afterStep(which);
  return ok;
}

bool isOwnMachineElf(int fd) {
  unsigned char h[EI_NIDENT + 4];  // identification, e_type, e_machine
  if (pread(fd, h, sizeof h, 0) != static_cast<ssize_t>(sizeof h)) return false;
  uint16_t type, machine;
  memcpy(&type, h + EI_NIDENT, 2);  // in the file's byte order, checked to be ours
  memcpy(&machine, h + EI_NIDENT + 2, 2);
  const bool ok = memcmp(h, ELFMAG, SELFMAG) == 0 && h[EI_CLASS] == kElfClass &&
                  h[EI_DATA] == kElfData && (type == ET_EXEC || type == ET_DYN) &&
                  machine == kElfMachine;
  if (!ok) errno = ENOEXEC;
  return ok;
}

bool syncPath(const char *path, int flags) {
  const int fd = open(path, flags | O_CLOEXEC);
  const bool ok = fd >= 0 && fsync(fd) == 0;
  if (fd >= 0) close(fd);
  return ok;
}

bool copyFile(const char *from, const char *to) {
  const int in = open(from, O_RDONLY | O_CLOEXEC);
  const int out = open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kExecutableMode);
  bool ok = in >= 0 && out >= 0;
  char buf[4096];
  for (ssize_t n; ok && (n = read(in, buf, sizeof buf)) != 0;)
    ok = n > 0 && write(out, buf, static_cast<size_t>(n)) == n;
  ok = ok && fsync(out) == 0;
  if (in >= 0) close(in);
  if (out >= 0) close(out);
  return ok;
}

// The executable before this update keeps the name quenvarile_Bak: a second
// link to the same file, or a copy where the file system has no links.
bool keepBackup() {
  if (unlink(kUpdateBakPath) != 0 && errno != ENOENT) return false;
  if (link(kUpdateExePath, kUpdateBakPath) == 0) return true;
  if (errno == ENOENT) return true;  // no executable yet: nothing to keep
  return copyFile(kUpdateExePath, kUpdateBakPath);
}

// With a key installed, only a file signed by one of them; without, any.
bool trusted(int fd) {
  if (velquare_update_trust(QV_UPDATE_KEYS_DIR) == UPDATE_UNAUTHENTICATED) return true;
  const bool ok = velquare_update_signature_valid(fd, QV_UPDATE_KEYS_DIR);
  if (!ok) errno = EPERM;
  return ok;
}

// The trial mark: the new executable is on trial until the supervisor has
// seen it run well, and is replaced by quenvarile_Bak otherwise. Its content
// counts the supervisor's starts; it is on disk, name included, before the
// rename that puts the new executable in place.
bool markTrial() {
  const int fd = open(kUpdateTrialPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  bool ok = fd >= 0 && write(fd, "0\n", 2) == 2 && fsync(fd) == 0;
  if (fd >= 0) close(fd);
  return ok && syncPath(kUpdateDirPath, O_RDONLY | O_DIRECTORY);
}

// 0 when the received file is the executable, on disk.
int installReceivedFile() {
  const int fd = open(kUpdateOtaPath, O_RDONLY | O_CLOEXEC);
  if (fd < 0) perror(kUpdateOtaPath);
  // Nothing changes on disk before the file is known to be signed and ours.
  const bool ready =
      fd >= 0 && step(fsync(fd) == 0, kOtaFlushed, "flush") &&
      step(trusted(fd) && isOwnMachineElf(fd), kOtaChecked, "signature and executable check");
  if (fd >= 0) close(fd);
  if (!ready || !step(keepBackup(), kBackupKept, "backup") ||
      !step(chmod(kUpdateOtaPath, kExecutableMode) == 0, kModeSet, "mode") ||
      !step(markTrial(), kTrialMarked, "trial mark"))
    return -1;
  if (!step(rename(kUpdateOtaPath, kUpdateExePath) == 0, kRenamed, "rename")) {
    unlink(kUpdateTrialPath);
    return -1;
  }
  if (!step(syncPath(kUpdateDirPath, O_RDONLY | O_DIRECTORY), kDirFlushed,
            "flush of the directory")) {
    if (rename(kUpdateBakPath, kUpdateExePath) == 0) unlink(kUpdateTrialPath);
    syncPath(kUpdateDirPath, O_RDONLY | O_DIRECTORY);
    return -1;
  }
  return 0;
}

}  // namespace

int velquare_ymodem_update_start() {
  setUpdating(1);
  puts("wait 10s for ymodem...");
  unlink(kUpdateOtaPath);  // no stale file from an earlier try
  sleep(senderWaitSeconds());
  puts("start ymodem...");
  uartFlushInput();
  return velquare_ymodem_start(uartSend, uartRecv, velquare_ymodem_finished_state);
}

int velquare_ymodem_finished_state(int state) {
  if (state) {
    printf("velquare_ymodem_finished_state finished: %d\n", state);
    if (access(kUpdateOtaPath, F_OK) == 0) {
      if (installReceivedFile() == 0) {
        sendText(kReplyOk);
        sleep(kUpdateRebootDelaySeconds);
        (void)!system(QV_CMD_REBOOT);
        // Still here: the board did not go down. The host may try again.
        setUpdating(0);
        return 0;
      }
    } else {
      puts("err : not update quenvarile_ota");
    }
  } else {
    printf("velquare_ymodem_finished_state err: %d\n", state);
  }
  unlink(kUpdateOtaPath);
  sendText(kReplyErr);
  setUpdating(0);
  return 0;
}
