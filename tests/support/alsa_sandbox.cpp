#include "support/alsa_sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

// pcm.hw takes the place of the kernel's hw plugin for every card and device.
// alsa.conf is not loaded, so the null PCM the file plugin sits on is defined here.
AlsaSandbox::AlsaSandbox(const Sandbox &sandbox)
    : dir_(sandbox.file("alsa")), config_(dir_ + "/asound.conf") {
  mkdir(dir_.c_str(), 0755);
  sandbox.write("alsa/asound.conf", R"(pcm.null { type null }
pcm.hw {
  @args [ CARD DEV SUBDEV ]
  @args.CARD { type string default "0" }
  @args.DEV { type integer default 0 }
  @args.SUBDEV { type integer default -1 }
  type file
  slave.pcm "null"
  file "/dev/null"
  infile { @func concat strings [ ")" + dir_ +
                                        R"(/capture" $DEV ] }
  format "raw"
})");
  if (const char *old = getenv("ALSA_CONFIG_PATH")) previous_ = old;
  setenv("ALSA_CONFIG_PATH", config_.c_str(), 1);
  for (int device : {1, 2, 3}) setCaptureData(device, "");
}

AlsaSandbox::~AlsaSandbox() {
  stopFeeding_ = true;
  // A feeder waiting for its reader, or blocked on a full FIFO, is released
  // by a reader of our own.
  std::vector<int> releasers;
  char sink[4096];
  for (const std::string &fifo : fifos_)
    releasers.push_back(open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
  for (int fd : releasers)
    while (fd >= 0 && read(fd, sink, sizeof sink) > 0) {}
  for (std::thread &feeder : feeders_) feeder.join();
  for (int fd : releasers) close(fd);
  if (previous_)
    setenv("ALSA_CONFIG_PATH", previous_->c_str(), 1);
  else
    unsetenv("ALSA_CONFIG_PATH");
}

void AlsaSandbox::setCaptureData(int device, const std::string &bytes) const {
  removeDevice(device);
  writeFile(capturePath(device), bytes);
}

void AlsaSandbox::removeDevice(int device) const { unlink(capturePath(device).c_str()); }

void AlsaSandbox::feed(int device, unsigned channels, std::vector<uint8_t> samples,
                       FeedOptions options) {
  signal(SIGPIPE, SIG_IGN);  // the daemon may go away while a period is written
  removeDevice(device);
  fifos_.push_back(capturePath(device));
  if (mkfifo(fifos_.back().c_str(), 0600) != 0) ADD_FAILURE() << "cannot create " << fifos_.back();
  options.zerosAfter = true;
  feeders_.emplace_back([this, fifo = fifos_.back(), channels, samples = std::move(samples),
                         options] { feedFifo(fifo, samples, channels, options, &stopFeeding_); });
}
