// Host command frames: decoding of one frame, the test-mode thresholds it
// carries, and the byte-stream reader that finds frames on the line.
#pragma once
#include <cstdint>

#include "hostlink/host_frames.h"

enum class HostCommandKind { Ignored, Update, StopTest, StartTest, Reboot, GetPosition };

struct HostCommand {
  HostCommandKind kind;
  uint8_t a;  // parameter A
  uint8_t b;  // parameter B
};

// Pure: what one 6-byte frame asks for. Unknown or malformed frames are Ignored.
HostCommand hostDecodeFrame(const uint8_t frame[kCommandFrameSize]);

struct TestThresholds {
  int32_t sendRetMode;  // 1: level reports carry raw dB values
  uint32_t micDBmax;    // adequate level
  uint32_t micDBmin;    // below this a channel counts as silent
};

// Pure: the thresholds a start-test frame sets. Swapped when given upside
// down; a zero upper threshold becomes 95, then a zero lower one 90 (even
// when that leaves it above the upper one).
TestThresholds hostTestThresholds(uint8_t a, uint8_t b);

// Receive function of the line: bytes read, 0 or -1 when none came.
using HostRecvFunc = int (*)(uint8_t *buf, int len);
using HostExecuteFunc = void (*)(const HostCommand &command);
// Sleeps until the line may have bytes, at most `timeoutMillis`: false on
// time-out. Without one (nullptr) the reader calls receive back to back.
using HostWaitFunc = bool (*)(int timeoutMillis);

// How long the command thread sleeps on a silent line before it looks at its
// flags again (closed line, update running, asked to stop).
constexpr int kHostWaitMillis = 20;

// One turn of the reader: takes one byte (printed as "recv data : %x"); when
// it is the start byte, waits for the other 5 bytes of the frame, retrying
// receive without limit while `run` is nonzero. True when `frame` holds a
// whole frame. Any byte that is not a start byte is dropped, so every byte
// is a possible start: this is how the reader resynchronises. With `wait`,
// every receive comes after the line turned readable, and a silent line
// returns false after kHostWaitMillis (before the first byte) or keeps the
// reader asleep in such steps (inside a frame).
bool hostReadFrame(HostRecvFunc recv, uint8_t frame[kCommandFrameSize], const int32_t &run,
                   HostWaitFunc wait = nullptr);

// The command thread's loop while `run` is nonzero: idles in 100 ms steps
// while the line is closed or an update owns it, else reads frames and
// hands each decoded one to `execute`. With `wait` it sleeps on a silent
// line and sees its flags again at least every kHostWaitMillis.
void hostCommandLoop(HostRecvFunc recv, HostExecuteFunc execute, const int32_t &run,
                     HostWaitFunc wait = nullptr);
