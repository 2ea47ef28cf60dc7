#include "support/alsa_sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace {

// pcm.hw takes the place of the kernel's hw plugin for every card and device.
// alsa.conf is not loaded, so the null PCM the file plugin sits on is defined here.
std::string configText(const std::string &dir) {
  return "pcm.null { type null }\n"
         "pcm.hw {\n"
         "  @args [ CARD DEV SUBDEV ]\n"
         "  @args.CARD { type string default \"0\" }\n"
         "  @args.DEV { type integer default 0 }\n"
         "  @args.SUBDEV { type integer default -1 }\n"
         "  type file\n"
         "  slave.pcm \"null\"\n"
         "  file \"/dev/null\"\n"
         "  infile { @func concat strings [ \"" + dir + "/capture\" $DEV ] }\n"
         "  format \"raw\"\n"
         "}\n";
}

}  // namespace

AlsaSandbox::AlsaSandbox(const Sandbox &sandbox) : dir_(sandbox.file("alsa")), config_(dir_ + "/asound.conf") {
  mkdir(dir_.c_str(), 0755);
  std::ofstream(config_) << configText(dir_);
  if (const char *old = getenv("ALSA_CONFIG_PATH")) previous_ = old, hadPrevious_ = true;
  setenv("ALSA_CONFIG_PATH", config_.c_str(), 1);
  for (int device : {1, 2, 3}) setCaptureData(device, "");
}

AlsaSandbox::~AlsaSandbox() {
  stopFeeding_ = true;
  // A feeder waiting for its reader, or blocked on a full FIFO, is released
  // by a reader of our own.
  std::vector<int> releasers;
  for (const std::string &fifo : fifos_) releasers.push_back(open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
  char sink[4096];
  for (int fd : releasers)
    while (fd >= 0 && read(fd, sink, sizeof sink) > 0) {
    }
  for (std::thread &feeder : feeders_) feeder.join();
  for (int fd : releasers)
    if (fd >= 0) close(fd);
  if (hadPrevious_)
    setenv("ALSA_CONFIG_PATH", previous_.c_str(), 1);
  else
    unsetenv("ALSA_CONFIG_PATH");
}

void AlsaSandbox::setCaptureData(int device, const std::string &bytes) const {
  removeDevice(device);
  std::ofstream(capturePath(device), std::ios::binary) << bytes;
}

std::string AlsaSandbox::makeCaptureFifo(int device) const {
  removeDevice(device);
  std::string path = capturePath(device);
  if (mkfifo(path.c_str(), 0600) != 0) ADD_FAILURE() << "cannot create the FIFO " << path;
  return path;
}

void AlsaSandbox::removeDevice(int device) const { unlink(capturePath(device).c_str()); }

void AlsaSandbox::feed(int device, unsigned channels, std::vector<uint8_t> samples, FeedOptions options) {
  signal(SIGPIPE, SIG_IGN);  // the daemon may go away while a period is written
  fifos_.push_back(makeCaptureFifo(device));
  options.zerosAfter = true;
  feeders_.emplace_back([this, fifo = fifos_.back(), channels, samples = std::move(samples), options] {
    feedFifo(fifo, samples, channels, options, &stopFeeding_);
  });
}
