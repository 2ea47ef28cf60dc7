// Per-frame spatial spectrum as CSV: a header row, then one row per 20 ms frame
// with the frame's end time and the 181 values from -90 to +90 degrees
// (zeros for frames without a scan).
#pragma once
#include <cstdio>
#include <string>

struct SpectrumCsv {
  FILE *file = nullptr;
};

std::string spectrumCsvOpen(SpectrumCsv *csv, const std::string &path);
void spectrumCsvRow(SpectrumCsv *csv, double timeSeconds, const float *spectrum);
std::string spectrumCsvClose(SpectrumCsv *csv, const std::string &path);
