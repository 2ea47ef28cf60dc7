// quenvarile-replay: runs the direction estimator over recordings, frame by
// frame, through the daemon's own per-frame path, and prints one line per
// 20 ms frame: "time_seconds,angle_byte".
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/estimator.h"
#include "orienangle/estimator/frame_convert.h"
#include "replay/recording_input.h"
#include "replay/spectrum_csv.h"
#include "replay/spectrum_picture.h"
#include "replay/spectrum_tap.h"

namespace {
const char kUsage[] =
    "usage: quenvarile-replay [options] ARRAY.wav [LINEIN]\n"
    "\n"
    "Runs the direction estimator over a recording of the 8-microphone array, as the\n"
    "daemon would, and prints one line per 20 ms frame: time_seconds,angle_byte\n"
    "(time of the frame's end; 0..180 = direction index, -90..+90 degrees;\n"
    "230 = no direction; 231 = loudspeaker playing).\n"
    "\n"
    "  ARRAY.wav           8-channel 48000 Hz 16-bit WAV: a standard file, or the\n"
    "                      daemon's debug recording (its size fields are placeholders;\n"
    "                      it is read to the end of the file)\n"
    "  LINEIN              line-in recording (loudspeaker reference): a WAV, whose first\n"
    "                      channel is used, or a headerless S16_LE recording of the\n"
    "                      daemon, whose left channel is used: stereo as the capture\n"
    "                      worker records it (/tmp/recCapAudioLinein.wav), or mono as\n"
    "                      the angle module records it (/tmp/angleRecCapAudioAlgLinein.wav,\n"
    "                      give --linein-mono). Without LINEIN the reference is silent,\n"
    "                      as on a daemon that never received one.\n"
    "  --linein-mono       a headerless LINEIN holds one channel, not two\n"
    "  --spectrum FILE.csv write each frame's spatial spectrum (181 values, -90..+90)\n"
    "  --picture FILE.png  draw the spatial spectrum over time with the published\n"
    "                      direction traced over it\n"
    "  -h, --help          this text\n";

struct Options {
  std::string arrayPath, linePath, csvPath, picturePath;
  int rawLineChannels = REPLAY_LINEIN_CHANNELS;
};

int usageError(const std::string &message) {
  fprintf(stderr, "quenvarile-replay: %s\n\n%s", message.c_str(), kUsage);
  return 2;
}

// Returns -1 to go on, else the exit status.
int parse(int argc, char **argv, Options *opt) {
  std::vector<std::string> positional;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      fputs(kUsage, stdout);
      return 0;
    }
    if (arg == "--linein-mono") {
      opt->rawLineChannels = 1;
    } else if (arg == "--spectrum" || arg == "--picture") {
      if (i + 1 >= argc) return usageError(arg + " needs a file name");
      (arg == "--spectrum" ? opt->csvPath : opt->picturePath) = argv[++i];
    } else if (arg.size() > 1 && arg[0] == '-') {
      return usageError("unknown option " + arg);
    } else {
      positional.push_back(arg);
    }
  }
  if (positional.empty()) return usageError("no array recording given");
  if (positional.size() > 2) return usageError("too many arguments");
  opt->arrayPath = positional[0];
  if (positional.size() == 2) opt->linePath = positional[1];
  return -1;
}

int fail(const std::string &message) {
  fprintf(stderr, "quenvarile-replay: %s\n", message.c_str());
  return 1;
}
}  // namespace

int main(int argc, char **argv) {
  Options opt;
  const int parsed = parse(argc, argv, &opt);
  if (parsed >= 0) return parsed;

  ReplayInput input;
  std::string err = replayLoad(opt.arrayPath, opt.linePath, opt.rawLineChannels, &input);
  if (!err.empty()) return fail(err);
  const size_t frames = replayFrameCount(input);

  SpectrumCsv csv;
  if (!opt.csvPath.empty() && !(err = spectrumCsvOpen(&csv, opt.csvPath)).empty()) return fail(err);
  SpectrumPicture picture;
  if (!opt.picturePath.empty()) spectrumPictureInit(&picture, frames);

  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  if (!est) return fail("cannot create the estimator");

  // The daemon's buffers: the reference frame starts zeroed and keeps its last
  // block when the line-in has no new one.
  std::vector<uint8_t> micBytes(REPLAY_FRAME * REPLAY_MICS * 2), refBytes(REPLAY_FRAME * 2);
  std::vector<float> micFloat(REPLAY_FRAME * REPLAY_MICS), spkinFloat(REPLAY_FRAME, 0.0f);
  const bool wantSpectrum = csv.file || !opt.picturePath.empty();

  const auto start = std::chrono::steady_clock::now();
  for (size_t f = 0; f < frames; ++f) {
    if (replayReferenceBlock(input, f, refBytes.data()))
      orienAngleSpkinToFloat(refBytes.data(), spkinFloat.data());
    replayArrayFrame(input, f, micBytes.data());
    orienAngleFrameToPlanar(micBytes.data(), micFloat.data());
    uint8_t angle = ANGLE_NONE, aux = ANGLE_NONE;
    angleFrameProcess(est, micFloat.data(), micFloat.data(), spkinFloat.data(), &angle, &aux);

    const double endTime = (f + 1) * REPLAY_FRAME_SECONDS;
    printf("%.2f,%u\n", endTime, static_cast<unsigned>(angle));
    if (wantSpectrum) {
      const float *spectrum = replayFrameSpectrum(est);
      if (csv.file) spectrumCsvRow(&csv, endTime, spectrum);
      if (!opt.picturePath.empty()) spectrumPictureAdd(&picture, f, spectrum, angle);
    }
  }
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  orienAngleEstimatorDestroy(est);
  if (fflush(stdout) != 0) return fail("cannot write standard output");
  fprintf(stderr, "quenvarile-replay: %zu frames (%.2f s of audio) in %.2f s, %.0f frames/s\n",
          frames, frames * REPLAY_FRAME_SECONDS, elapsed, elapsed > 0 ? frames / elapsed : 0.0);

  if (csv.file && !(err = spectrumCsvClose(&csv, opt.csvPath)).empty()) return fail(err);
  if (!opt.picturePath.empty() && !(err = spectrumPictureWrite(picture, opt.picturePath)).empty())
    return fail(err);
  return 0;
}
