#include "replay/spectrum_csv.h"

#include <cerrno>
#include <cstring>

#include "replay/spectrum_tap.h"

std::string spectrumCsvOpen(SpectrumCsv *csv, const std::string &path) {
  csv->file = fopen(path.c_str(), "w");
  if (!csv->file) return "cannot create " + path + ": " + strerror(errno);
  fputs("time_seconds", csv->file);
  for (int a = 0; a < REPLAY_ANGLES; ++a) fprintf(csv->file, ",%d", a - 90);
  fputc('\n', csv->file);
  return "";
}

void spectrumCsvRow(SpectrumCsv *csv, double timeSeconds, const float *spectrum) {
  fprintf(csv->file, "%.2f", timeSeconds);
  for (int a = 0; a < REPLAY_ANGLES; ++a)
    fprintf(csv->file, ",%.6g", spectrum ? spectrum[a] : 0.0f);
  fputc('\n', csv->file);
}

std::string spectrumCsvClose(SpectrumCsv *csv, const std::string &path) {
  const bool failed = ferror(csv->file) != 0;
  const bool closeFailed = fclose(csv->file) != 0;
  csv->file = nullptr;
  return failed || closeFailed ? "cannot write " + path : "";
}
