// Fuzz target: arbitrary bytes on the host line, read by the command loop.
//
// Byte 0 seeds how the line delivers the rest (bytes per receive call, and
// calls that find nothing). The loop must read exactly the frames a plain
// model finds: every start byte opens a 6-byte frame, other bytes are dropped.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "hostlink/host_command.h"
#include "hostlink/host_protocol.h"

namespace {

const uint8_t *line;
size_t lineLeft;
uint32_t shape;
int32_t run;
std::vector<HostCommand> seen;

void check(bool ok, const char *what) {
  if (ok) return;
  fprintf(stderr, "host command fuzz: %s\n", what);
  abort();
}

int fuzzRecv(uint8_t *buf, int len) {
  if (lineLeft == 0) {
    run = 0;  // the line ran dry: the loop ends
    return -1;
  }
  shape = shape * 1103515245u + 12345u;
  const uint32_t r = shape >> 16;
  if (r % 4 == 0) return r % 8 == 0 ? -1 : 0;  // nothing came
  const size_t n = std::min<size_t>(lineLeft, 1 + r % static_cast<uint32_t>(len));
  std::copy(line, line + n, buf);
  line += n;
  lineLeft -= n;
  return static_cast<int>(n);
}

// Reboot and update would act on the machine; the others are carried out.
void execute(const HostCommand &command) {
  seen.push_back(command);
  if (command.kind != HostCommandKind::Reboot && command.kind != HostCommandKind::Update)
    hostExecuteCommand(command);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  if (!freopen("/dev/null", "w", stdout)) abort();  // the loop traces every byte
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

  size_t expected = 0;  // the model: every start byte opens a whole frame
  for (size_t i = 1; i + kCommandFrameSize <= size; ++i) {
    if (data[i] != kCommandStart) continue;
    const HostCommand want = hostDecodeFrame(data + i);
    check(expected < seen.size(), "a frame was missed");
    const HostCommand &got = seen[expected++];
    check(got.kind == want.kind && got.a == want.a && got.b == want.b, "a frame was misread");
    i += kCommandFrameSize - 1;
  }
  check(expected == seen.size(), "a frame was read that is not on the line");
  return 0;
}
