// Update installation: marks the update, gives the host time to start its
// sender, runs the YMODEM receiver on the host line, and on completion
// replaces the executable and reboots, or reports the failure and goes on.
#include "update/update_install.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/shared_word.h"
#include "edge_config.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/state_segment.h"
#include "update/ymodem.h"

namespace {

#define QV_UPDATE_EXE QV_ROOT_DIR "/quenvarile"
#define QV_UPDATE_OTA QV_ROOT_DIR "/quenvarile_ota"

constexpr char kReplyOk[] = "ymodem updata ok";    // sent raw, without terminator
constexpr char kReplyErr[] = "ymodem updata err";

void setUpdating(int value) {
  sharedStore(gHostCtrl.isUpdating, value);
  if (StateSegment *segment = velquare_shm_get()) sharedStore(segment->updating, value);
}

void sendText(const char *text) {
  uartSend(reinterpret_cast<const uint8_t *>(text), static_cast<int>(strlen(text)));
}

void run(const char *cmd) { (void)!system(cmd); }

unsigned senderWaitSeconds() {
#if QV_SANDBOX
  // Test seam: only the sandbox build lets a test shorten the wait.
  if (const char *s = getenv("QV_SANDBOX_UPDATE_WAIT_SECONDS")) return static_cast<unsigned>(atoi(s));
#endif
  return kUpdateSenderWaitSeconds;
}

}  // namespace

int velquare_ymodem_update_start() {
  setUpdating(1);
  puts("wait 10s for ymodem...");
  run(QV_CMD_REMOVE " " QV_UPDATE_OTA);  // the receiver appends: no stale file
  sleep(senderWaitSeconds());
  puts("start ymodem...");
  uartFlushInput();
  return velquare_ymodem_start(uartSend, uartRecv, velquare_ymodem_finished_state);
}

int velquare_ymodem_finished_state(int state) {
  if (state) {
    printf("velquare_ymodem_finished_state finished: %d\n", state);
    if (access(QV_UPDATE_OTA, F_OK) == 0) {
      run(QV_CMD_REMOVE " " QV_UPDATE_EXE);
      run(QV_CMD_MOVE " " QV_UPDATE_OTA " " QV_UPDATE_EXE);
      run(QV_CMD_CHMOD " " QV_UPDATE_EXE);
      run(QV_CMD_SYNC);
      sendText(kReplyOk);
      sleep(kUpdateRebootDelaySeconds);
      run(QV_CMD_REBOOT);
      return 0;
    }
    puts("err : not update quenvarile_ota");
  } else {
    printf("velquare_ymodem_finished_state err: %d\n", state);
  }
  sendText(kReplyErr);
  setUpdating(0);
  return 0;
}
