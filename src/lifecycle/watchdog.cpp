#include "lifecycle/watchdog.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstdio>

#include "common/thread_start.h"
#include "edge_config.h"

// Written once by the open, then used only by the watchdog thread.
static int gGpioFd = -1;

// One second, by select with no descriptors and a fresh time-out each time.
static void sleepOneSecond() {
  timeval timeout{1, 0};
  select(0, nullptr, nullptr, nullptr, &timeout);
}

int velquare_hal_wdg_open() {
  gGpioFd = open(QV_GPIO_DEVICE, O_RDWR);
  if (gGpioFd < 1) return -1;  // descriptor 0 is not taken as the device either
  ioctl(gGpioFd, GPIO_CMD_SETUP, GPIO_ARG_SETUP);
  return 0;
}

int velquare_hal_wdg_start() {
  pthread_t thread;
  // Without the thread the board's watchdog is not fed; the start-up goes on
  // all the same, as it does when the device is missing.
  (void)startThread(&thread, nullptr, velquare_hal_proc, nullptr, "velquare_hal_proc");
  return 0;
}

// Pulse period 2 s: one second in each of the two line states. Runs for
// as long as the process does.
void *velquare_hal_proc(void *) {
  puts("velquare_hal_proc start! ");
  pthread_detach(pthread_self());
  pthread_setname_np(pthread_self(), "qv-watchdog");
  for (;;) {
    ioctl(gGpioFd, GPIO_CMD_LINE, GPIO_ARG_WDG_FIRST_HALF);
    sleepOneSecond();
    ioctl(gGpioFd, GPIO_CMD_LINE, GPIO_ARG_WDG_SECOND_HALF);
    sleepOneSecond();
  }
  return nullptr;
}
