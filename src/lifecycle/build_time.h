// The build's date and time as numbers, taken apart at compile time from
// __DATE__ ("Mar  5 2020") and __TIME__ ("09:14:42").
#pragma once

struct BuildTime {
  long long year, month, day, hour, minute, second;
};

constexpr long long buildDigit(char c) { return c == ' ' ? 0 : c - '0'; }

constexpr long long buildTwoDigits(const char *s) {
  return buildDigit(s[0]) * 10 + buildDigit(s[1]);
}

constexpr long long buildMonth(const char *date) {
  const char *names = "JanFebMarAprMayJunJulAugSepOctNovDec";
  for (int m = 0; m < 12; ++m)
    if (date[0] == names[3 * m] && date[1] == names[3 * m + 1] && date[2] == names[3 * m + 2])
      return m + 1;
  return 0;
}

constexpr BuildTime parseBuildTime(const char *date, const char *time) {
  return BuildTime{buildTwoDigits(date + 7) * 100 + buildTwoDigits(date + 9),
                   buildMonth(date),
                   buildTwoDigits(date + 4),
                   buildTwoDigits(time),
                   buildTwoDigits(time + 3),
                   buildTwoDigits(time + 6)};
}
