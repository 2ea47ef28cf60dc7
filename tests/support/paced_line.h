// A host line as slow as the board's UART, for a sender such as `sb`: it runs
// on a raw tty of its own, and a relay passes its bytes on to the device's
// line (the host's end of a PtyLine, or of an emulated board's UART) and back,
// in each direction no faster than a given rate.
// What a side writes faster than that queues up as in a UART's buffer.
#pragma once
#include <string>
#include <vector>

// 115200 baud, 8N1: ten bit times per byte.
constexpr int kUartBytesPerSecond = 115200 / 10;

// Runs `sb <args...>` (messages to sb.log) as the host of the line whose host
// end is lineFd until it ends; its exit status, or -1 when it was killed after
// timeoutMs.
int runPacedSb(int lineFd, int bytesPerSecond, const std::vector<std::string> &args, int timeoutMs);
