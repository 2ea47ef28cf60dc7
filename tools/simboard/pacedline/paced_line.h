// A host line as slow as the board's UART, for a sender such as `sb`: it runs
// on a raw tty of its own, and a relay passes its bytes on to the device's
// line (the host's end of a PtyLine, or of an emulated board's UART) and back,
// in each direction no faster than a given rate.
// What a side writes faster than that queues up as in a UART's buffer.
#pragma once
#include <functional>
#include <string>
#include <vector>

// 115200 baud, 8N1: ten bit times per byte.
constexpr int kUartBytesPerSecond = 115200 / 10;

// Changes bytes on their way from the host to the device: gets what the relay
// has just read and how many bytes came before it.
using LineTamper = std::function<void(std::string *bytes, size_t before)>;

// Runs `sb <args...>` (messages to sb.log) as the host of the line whose host
// end is lineFd until it ends; its exit status, or -1 when it was killed after timeoutMs or once
// `stop` (when given) said true. `stalledMs` (when given) gets the longest
// time the relay itself was kept from running while bytes for the device
// waited: on a loaded machine that is a pause inside a block that a real
// UART never makes.
int runPacedSb(int lineFd, int bytesPerSecond, const std::vector<std::string> &args, int timeoutMs,
               const LineTamper &tamper = {}, const std::function<bool()> &stop = {},
               int *stalledMs = nullptr);
