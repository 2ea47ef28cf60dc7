// Fuzz target: arbitrary bytes on the host line, read by the command loop.
//
// Input: byte 0 shapes how the line delivers the rest (how many bytes one
// receive call returns, and receive calls that find nothing); the other
// bytes are the line's content. The loop must decode exactly the frames a
// plain model of the protocol finds (every start byte opens a 6-byte frame,
// other bytes are dropped), and every command it carries out must leave the
// control record in a state the protocol allows. Reboot and update are
// checked but not carried out.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "hostlink/host_command.h"
#include "hostlink/host_protocol.h"

namespace {

const uint8_t *line;
size_t lineLeft;
uint32_t shape;  // a small generator seeded from byte 0
int32_t run;

uint32_t nextShape() {
  shape = shape * 1103515245u + 12345u;
  return shape >> 16;
}

int fuzzRecv(uint8_t *buf, int len) {
  if (lineLeft == 0) {
    run = 0;  // the line ran dry: the loop ends
    return -1;
  }
  const uint32_t r = nextShape();
  if (r % 4 == 0) return r % 8 == 0 ? -1 : 0;  // nothing came
  size_t n = 1 + r % static_cast<uint32_t>(len);
  if (n > lineLeft) n = lineLeft;
  for (size_t i = 0; i < n; ++i) buf[i] = line[i];
  line += n;
  lineLeft -= n;
  return static_cast<int>(n);
}

std::vector<HostCommand> seen;

void check(bool ok, const char *what) {
  if (!ok) {
    fprintf(stderr, "host command fuzz: %s\n", what);
    abort();
  }
}

void execute(const HostCommand &command) {
  seen.push_back(command);
  if (command.kind == HostCommandKind::Reboot || command.kind == HostCommandKind::Update) return;
  hostExecuteCommand(command);
  switch (command.kind) {
    case HostCommandKind::StartTest: {
      const HostCtrl &c = gHostCtrl;
      check(c.testMode == 1, "start test leaves test mode off");
      check(c.sendRetMode == (command.a >> 7), "raw-dB flag is not bit 7 of A");
      check(c.micDBmax >= 1 && c.micDBmax <= 127, "upper threshold out of range");
      check(c.micDBmin >= 1 && c.micDBmin <= 127, "lower threshold out of range");
      // Only a defaulted lower threshold may end up above the upper one.
      check(c.micDBmax >= c.micDBmin || c.micDBmin == 90, "thresholds upside down");
      break;
    }
    case HostCommandKind::StopTest:
      check(gHostCtrl.testMode == 0, "stop test leaves test mode on");
      break;
    case HostCommandKind::GetPosition:
      check(gHostCtrl.posiRequested == 1, "get position not recorded");
      break;
    default:
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // The loop traces every byte it tests; keep the fuzzer's output readable.
  if (!freopen("/dev/null", "w", stdout)) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  shape = data[0];
  line = data + 1;
  lineLeft = size - 1;
  run = 1;
  seen.clear();
  gHostCtrl = HostCtrl{};
  gHostCtrl.uartOpened = 1;

  hostCommandLoop(fuzzRecv, execute, run);

  // The model: scan for start bytes, each opening a whole frame.
  size_t expected = 0;
  for (size_t i = 1; i < size;) {
    if (data[i] != kCommandStart || i + kCommandFrameSize > size) {
      ++i;
      continue;
    }
    const HostCommand want = hostDecodeFrame(data + i);
    check(expected < seen.size(), "a frame was missed");
    const HostCommand &got = seen[expected++];
    check(got.kind == want.kind && got.a == want.a && got.b == want.b, "a frame was misread");
    i += kCommandFrameSize;
  }
  check(expected == seen.size(), "a frame was read that is not on the line");
  return 0;
}
