// quenvarile-simulate: what the board's 8-microphone array and its line-in
// would record while a talker speaks from a direction (or a schedule of
// directions), with optional microphone noise and loudspeaker playback.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sim/direction_schedule.h"
#include "sim/noise.h"
#include "sim/plane_wave.h"
#include "sim/resample.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"

namespace {
constexpr int kRate = 48000;
constexpr int kLineChannels = 2;
constexpr double kDefaultTalkerDbfs = -30.0;   // active speech level at each microphone
constexpr double kDefaultSpeakerDbfs = -20.0;  // loudspeaker level at the microphones
// The board's loudspeaker sits at microphone 7's end of the array; the
// microphones hear it from this fixed direction.
constexpr double kDefaultSpeakerDegrees = -70.0;
constexpr uint32_t kSyntheticSeed = 1;

const char kUsage[] =
    "usage: quenvarile-simulate [options] TALKER DIRECTION ARRAY_OUT.wav LINEIN_OUT.wav\n"
    "\n"
    "Writes what the board would record while TALKER speaks from DIRECTION: an 8-channel\n"
    "48000 Hz 16-bit WAV of the microphone array and a 2-channel WAV of the line-in\n"
    "(the loudspeaker reference on the left channel, or silence).\n"
    "\n"
    "  TALKER     a WAV file (16-bit PCM, any rate, channels are mixed to mono),\n"
    "             synthetic:SECONDS for a synthetic voiced talker, or none\n"
    "  DIRECTION  degrees from broadside, -90..90; positive is the side of microphone 0\n"
    "             (it hears the talker first). Or a schedule SECONDS:DEGREES,...\n"
    "             e.g. 0:30,5:-40 (30 degrees from 0 s, -40 degrees from 5 s)\n"
    "\n"
    "options:\n"
    "  --level DBFS           talker's active speech level at the microphones (default -30)\n"
    "  --lead SECONDS         silence (or noise) before the talker starts (default 0)\n"
    "  --snr DB               independent noise at every microphone, DB below the talker\n"
    "  --noise-level DBFS     the same noise at an absolute level instead\n"
    "  --noise white|pink     colour of the noise (default pink)\n"
    "  --speaker FILE.wav     loudspeaker playback: heard by the microphones from the\n"
    "                         loudspeaker's direction and copied to the line-in\n"
    "  --speaker-level DBFS   its active level at the microphones (default -20)\n"
    "  --speaker-start SECONDS  when the playback starts (default 0)\n"
    "  --speaker-direction DEGREES  where the microphones hear it from (default -70)\n"
    "  --seconds SECONDS      make the output at least this long\n"
    "  --seed N               noise seed (default 1)\n"
    "  -h, --help             this text\n";

struct Options {
  std::string talker, direction, arrayOut, lineOut, speaker;
  double level = kDefaultTalkerDbfs, lead = 0.0, speakerLevel = kDefaultSpeakerDbfs,
         speakerStart = 0.0;
  double speakerDirection = kDefaultSpeakerDegrees, minSeconds = 0.0;
  bool haveSnr = false, haveNoiseLevel = false;
  double snr = 0.0, noiseLevel = 0.0;
  NoiseColour colour = NoiseColour::Pink;
  uint32_t seed = 1;
};

struct Failure {
  std::string message;
  bool usage;
};

double dbToPower(double db) { return std::pow(10.0, db / 10.0); }

double number(const std::string &option, const char *text) {
  char *end = nullptr;
  const double v = strtod(text, &end);
  if (*text == '\0' || *end != '\0' || !std::isfinite(v))
    throw Failure{option + " needs a number, got '" + text + "'", true};
  return v;
}

Options parse(int argc, char **argv) {
  Options o;
  std::vector<std::string> positional;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&]() -> const char * {
      if (i + 1 >= argc) throw Failure{a + " needs a value", true};
      return argv[++i];
    };
    if (a == "-h" || a == "--help")
      throw Failure{"", true};
    else if (a == "--level")
      o.level = number(a, value());
    else if (a == "--lead")
      o.lead = number(a, value());
    else if (a == "--snr")
      o.snr = number(a, value()), o.haveSnr = true;
    else if (a == "--noise-level")
      o.noiseLevel = number(a, value()), o.haveNoiseLevel = true;
    else if (a == "--noise") {
      const std::string c = value();
      if (c != "white" && c != "pink")
        throw Failure{"--noise is white or pink, not '" + c + "'", true};
      o.colour = c == "white" ? NoiseColour::White : NoiseColour::Pink;
    } else if (a == "--speaker")
      o.speaker = value();
    else if (a == "--speaker-level")
      o.speakerLevel = number(a, value());
    else if (a == "--speaker-start")
      o.speakerStart = number(a, value());
    else if (a == "--speaker-direction")
      o.speakerDirection = number(a, value());
    else if (a == "--seconds")
      o.minSeconds = number(a, value());
    else if (a == "--seed")
      o.seed = static_cast<uint32_t>(number(a, value()));
    else if (a.size() > 1 && a[0] == '-' && !(a[1] >= '0' && a[1] <= '9'))
      throw Failure{"unknown option " + a, true};
    else
      positional.push_back(a);
  }
  if (positional.size() != 4)
    throw Failure{"expected TALKER DIRECTION ARRAY_OUT.wav LINEIN_OUT.wav, got " +
                      std::to_string(positional.size()) + " arguments",
                  true};
  o.talker = positional[0], o.direction = positional[1], o.arrayOut = positional[2],
  o.lineOut = positional[3];
  if (o.haveSnr && o.haveNoiseLevel)
    throw Failure{"give either --snr or --noise-level, not both", true};
  if (o.lead < 0 || o.speakerStart < 0 || o.minSeconds < 0)
    throw Failure{"times must not be negative", true};
  if (std::fabs(o.speakerDirection) > 90.0)
    throw Failure{"--speaker-direction must lie in -90..90", true};
  return o;
}

// A WAV file as mono floats at 48 kHz.
std::vector<float> loadMono(const std::string &path) {
  WavData wav;
  const std::string err = wavRead(path, &wav);
  if (!err.empty()) throw Failure{err, false};
  std::vector<float> mono(wav.frames(), 0.0f);
  for (int c = 0; c < wav.channels; ++c) {
    const std::vector<float> ch = wavChannel(wav, c);
    for (size_t i = 0; i < mono.size(); ++i) mono[i] += ch[i] / wav.channels;
  }
  return resample(mono, wav.sampleRate, kRate);
}

std::vector<float> loadTalker(const std::string &source) {
  const std::string synthetic = "synthetic:";
  if (source == "none") return {};
  if (source.compare(0, synthetic.size(), synthetic) == 0) {
    const double seconds = number("synthetic talker", source.c_str() + synthetic.size());
    if (seconds <= 0) throw Failure{"synthetic talker needs a positive length", true};
    return makeVoicedSpeech(seconds, kRate, kSyntheticSeed);
  }
  return loadMono(source);
}

// Scales a signal so that its active power is `dbfs` relative to full scale
// (0 dBFS = the power of a full-scale square wave).
void setActiveLevel(std::vector<float> *x, double dbfs, const std::string &what) {
  const double power = activePower(*x, kRate);
  if (power <= 0.0) throw Failure{what + " is silent", false};
  const double k = std::sqrt(dbToPower(dbfs) / power);
  for (float &v : *x) v = static_cast<float>(v * k);
}

void placeAt(std::vector<float> *dst, const std::vector<float> &src, size_t offset) {
  if (dst->size() < offset + src.size()) dst->resize(offset + src.size(), 0.0f);
  std::copy(src.begin(), src.end(), dst->begin() + offset);
}

int run(const Options &o) {
  std::vector<PlaneWaveSegment> schedule;
  const std::string err = parseDirectionSchedule(o.direction, &schedule);
  if (!err.empty()) throw Failure{err, true};

  std::vector<float> talker = loadTalker(o.talker);
  if (!talker.empty()) setActiveLevel(&talker, o.level, "talker " + o.talker);
  if (o.haveSnr && talker.empty())
    throw Failure{"--snr needs a talker; use --noise-level with 'none'", true};
  std::vector<float> speaker, speakerAtMics;
  if (!o.speaker.empty()) {
    speaker = loadMono(o.speaker);
    speakerAtMics = speaker;
    setActiveLevel(&speakerAtMics, o.speakerLevel, "loudspeaker signal " + o.speaker);
  }

  const size_t lead = static_cast<size_t>(std::llround(o.lead * kRate));
  const size_t speakerStart = static_cast<size_t>(std::llround(o.speakerStart * kRate));
  size_t n =
      std::max({static_cast<size_t>(std::llround(o.minSeconds * kRate)), lead + talker.size(),
                speaker.empty() ? size_t{0} : speakerStart + speaker.size()});
  if (n == 0)
    throw Failure{"nothing to simulate: no talker, no loudspeaker and no --seconds", true};

  std::vector<float> array(PLANE_WAVE_MICS * n, 0.0f), part(PLANE_WAVE_MICS * n);
  if (!talker.empty()) {
    std::vector<float> source;
    placeAt(&source, talker, lead);
    source.resize(n, 0.0f);
    planeWaveRenderSegments(source.data(), n, schedule.data(), schedule.size(), part.data());
    for (size_t i = 0; i < array.size(); ++i) array[i] += part[i];
  }
  std::vector<float> reference(n, 0.0f);
  if (!speaker.empty()) {
    std::vector<float> source;
    placeAt(&source, speakerAtMics, speakerStart);
    source.resize(n, 0.0f);
    planeWaveRender(source.data(), n, o.speakerDirection, part.data());
    for (size_t i = 0; i < array.size(); ++i) array[i] += part[i];
    placeAt(&reference, speaker, speakerStart);
  }
  if (o.haveSnr || o.haveNoiseLevel) {
    const double noisePower =
        o.haveSnr ? activePower(talker, kRate) / dbToPower(o.snr) : dbToPower(o.noiseLevel);
    for (int m = 0; m < PLANE_WAVE_MICS; ++m) {
      const std::vector<float> noise = makeNoise(o.colour, n, o.seed * 1009u + m);
      const float k = static_cast<float>(std::sqrt(noisePower));
      for (size_t i = 0; i < n; ++i) array[m * n + i] += k * noise[i];
    }
  }

  WavData out{kRate, PLANE_WAVE_MICS, std::vector<int16_t>(PLANE_WAVE_MICS * n)};
  size_t clipped = 0;
  for (size_t i = 0; i < n; ++i)
    for (int m = 0; m < PLANE_WAVE_MICS; ++m) {
      const float v = array[m * n + i];
      clipped += std::fabs(v) >= 1.0f;
      out.samples[i * PLANE_WAVE_MICS + m] = floatToS16(v);
    }
  WavData line{kRate, kLineChannels, std::vector<int16_t>(kLineChannels * n, 0)};
  for (size_t i = 0; i < n; ++i) line.samples[i * kLineChannels] = floatToS16(reference[i]);

  std::string werr = wavWrite(o.arrayOut, out);
  if (werr.empty()) werr = wavWrite(o.lineOut, line);
  if (!werr.empty()) throw Failure{werr, false};
  if (clipped)
    fprintf(stderr, "quenvarile-simulate: warning: %zu array samples clipped; lower the levels\n",
            clipped);
  fprintf(stderr, "quenvarile-simulate: wrote %.2f s: %s (8 channels), %s (line-in)\n",
          static_cast<double>(n) / kRate, o.arrayOut.c_str(), o.lineOut.c_str());
  return 0;
}
}  // namespace

int main(int argc, char **argv) {
  try {
    return run(parse(argc, argv));
  } catch (const Failure &f) {
    if (f.message.empty()) {
      fputs(kUsage, stdout);
      return 0;
    }
    fprintf(stderr, "quenvarile-simulate: %s\n", f.message.c_str());
    if (f.usage) fprintf(stderr, "\n%s", kUsage);
    return f.usage ? 2 : 1;
  }
}
