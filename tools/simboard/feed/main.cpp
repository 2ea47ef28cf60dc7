// quenvarile-feed: paces a recording into a FIFO that the sandbox's ALSA
// configuration reads as a capture device (see tests/support/alsa_sandbox.h).
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "feed.h"

namespace {

void usage() {
  fprintf(
      stderr,
      "usage: quenvarile-feed [-c channels] [-p period_frames] [-s speed] [-l] [-z] [-n periods]\n"
      "                       INPUT FIFO\n"
      "  INPUT  raw S16_LE (needs -c) or WAV; FIFO  the capture input of a sandbox device\n"
      "  -c  channels of a raw file (overrides the WAV header)\n"
      "  -p  frames per write, default %u (the period the capture reads)\n"
      "  -s  speed factor, default 1 (48000 frames per second); 0 = as fast as read\n"
      "  -l  loop the recording   -z  feed silence after the end instead of closing\n"
      "  -n  stop after this many periods\n",
      FEED_PERIOD_FRAMES);
}

}  // namespace

int main(int argc, char **argv) {
  FeedOptions options;
  int opt;
  while ((opt = getopt(argc, argv, "c:p:s:lzn:h")) != -1) {
    switch (opt) {
      case 'c': options.channels = unsigned(atoi(optarg)); break;
      case 'p': options.periodFrames = unsigned(atoi(optarg)); break;
      case 's': options.speed = atof(optarg); break;
      case 'l': options.loop = true; break;
      case 'z': options.zerosAfter = true; break;
      case 'n': options.maxPeriods = strtoull(optarg, nullptr, 10); break;
      default: usage(); return opt == 'h' ? 0 : 2;
    }
  }
  if (argc - optind != 2 || options.periodFrames == 0 || options.speed < 0) {
    usage();
    return 2;
  }
  FeedInput input;
  std::string error;
  if (!feedLoad(argv[optind], &input, &error)) {
    fprintf(stderr, "quenvarile-feed: %s\n", error.c_str());
    return 1;
  }
  unsigned channels = options.channels ? options.channels : input.channels;
  if (channels == 0) {
    fprintf(stderr, "quenvarile-feed: raw input needs -c channels\n");
    return 2;
  }
  signal(SIGPIPE, SIG_IGN);  // a reader that goes away ends the feed quietly
  int64_t periods = feedFifo(argv[optind + 1], input.samples, channels, options);
  if (periods < 0) {
    fprintf(stderr, "quenvarile-feed: cannot open %s\n", argv[optind + 1]);
    return 1;
  }
  return 0;
}
