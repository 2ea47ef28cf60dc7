// The host command thread and what each command does.
#include "hostlink/host_protocol.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "common/shared_word.h"
#include "edge_config.h"
#include "hostlink/host_command.h"
#include "hostlink/host_wiring.h"
#include "hostlink/uart.h"

HostCtrl gHostCtrl;

namespace {

// The command thread's console lines carry its name and fixed line tags,
// the same on every build, so logs of different builds compare.
constexpr const char *kThreadName = "velquare_uart_proc";
constexpr int kTagUpdate = 1602;
constexpr int kTagStopTest = 1610;
constexpr int kTagStartTest = 1616;
constexpr int kTagThresholds = 1633;
constexpr int kTagReboot = 1640;
constexpr int kTagGetPosition = 1649;

constexpr unsigned kRebootDelaySeconds = 1;      // between sync and reboot
constexpr useconds_t kClosedLinePause = 100000;  // after a get-position on a closed line

void runShell(const char *command) {
  const int status = system(command);
  (void)status;  // nothing to do about a failed sync or reboot but go on
}

void startTest(uint8_t a, uint8_t b) {
  printf("-->%s %d: start test mode..\n", kThreadName, kTagStartTest);
  const TestThresholds t = hostTestThresholds(a, b);
  sharedStore(gHostCtrl.micDBmax, t.micDBmax);
  sharedStore(gHostCtrl.sendRetMode, t.sendRetMode);
  sharedStore(gHostCtrl.micDBmin, t.micDBmin);
  printf("-->%s %d: sendRetMode:%d, micDBmax:%d, micDBmin:%d\n", kThreadName, kTagThresholds,
         t.sendRetMode, static_cast<int>(t.micDBmax), static_cast<int>(t.micDBmin));
  sharedStore(gHostCtrl.testMode, 1);
}

}  // namespace

void hostExecuteCommand(const HostCommand &command) {
  switch (command.kind) {
    case HostCommandKind::Update:
      if (sharedLoad(gHostCtrl.testMode) != 0) break;  // refused in test mode
      printf("-->%s %d: recv update cmd\n", kThreadName, kTagUpdate);
      velquare_ymodem_update_start();
      break;
    case HostCommandKind::StopTest:
      printf("-->%s %d: stop test mode..\n", kThreadName, kTagStopTest);
      sharedStore(gHostCtrl.testMode, 0);
      break;
    case HostCommandKind::StartTest: startTest(command.a, command.b); break;
    case HostCommandKind::Reboot:
      printf("-->%s %d: recv reboot cmd and reboot..\n", kThreadName, kTagReboot);
      runShell(QV_CMD_SYNC);
      sleep(kRebootDelaySeconds);
      runShell(QV_CMD_REBOOT);
      break;
    case HostCommandKind::GetPosition:
      printf("-->%s %d: recv get posi cmd and send posi..\n", kThreadName, kTagGetPosition);
      sharedStore(gHostCtrl.posiRequested, 1);
      if (sharedLoad(gHostCtrl.uartOpened) == 0) usleep(kClosedLinePause);
      break;
    case HostCommandKind::Ignored: break;
  }
}

void *velquare_uart_proc(void *) {
  pthread_detach(pthread_self());
  pthread_setname_np(pthread_self(), "qv-host");  // as top -H and /proc/<pid>/task/*/comm show it
  static const int32_t forever = 1;
  // Sleeps while the host is silent; a command is read as soon as its first byte arrives.
  hostCommandLoop(uartRecv, hostExecuteCommand, forever, uartWaitReadable);
  return nullptr;
}
