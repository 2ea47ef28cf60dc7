# The emulated board, driven from bash: sourced by scripts/board-boot and the
# board_vm tests (tests/board/).  The image comes from scripts/board-image.
#
#   board_start RUN [QEMU_OPTION...]   power on (disk: RUN/disk.qcow2, a copy-on-write
#                                      layer over the image, made on the first start
#                                      and kept for the next: a reboot or a power cut
#                                      then boots the same disk)
#   board_wait RUN REGEX [SECONDS]     wait for a console line of this boot
#   board_run RUN COMMAND [SECONDS]    run a command in the guest (root shell on hvc1);
#                                      prints its output, returns its status
#   board_kill RUN                     power cut: SIGKILL to qemu, nothing flushed
#   board_wait_off RUN [SECONDS]       wait for qemu to end by itself (reboot, poweroff)
#   board_host_tty RUN                 the PC's end of the board's host line (a pty)
#
# The machine: qemu-system-arm -M virt -cpu cortex-a7, one core, 512 MiB; the
# kernel, initrd and command line of the image; the PL011 UART on a pty (the
# guest's /dev/ttyS1); the console on virtio console hvc0 (RUN/console.log;
# earlier boots' consoles are appended to RUN/console-before.log); a guest
# reboot ends qemu (-no-reboot), so the harness powers on again.
#
# Disk: virtio-blk with cache=none (O_DIRECT on the PC; the guest sees a disk
# with a volatile write cache and sends its flushes, which qemu carries out).
# SIGKILL to qemu then loses the guest's page cache and every write qemu had
# not yet issued, as a power cut loses the board's memory; what the guest had
# written to the disk stays, as on a disk that keeps its cache.
#
# BOARD_IMAGE (default build/board-image) names the image directory.

board_image_dir() { echo "${BOARD_IMAGE:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/board-image}"; }

board_check_qemu() {
  if ! command -v qemu-system-arm >/dev/null; then
    echo "board: qemu-system-arm is not installed (scripts/packages/board.txt)" >&2; return 1
  fi
  if ! qemu-system-arm -M virt -cpu cortex-a7 -display none -S -nodefaults -monitor none \
       -serial none -machine help >/dev/null 2>&1; then
    echo "board: qemu-system-arm cannot run here" >&2; return 1
  fi
  local image; image=$(board_image_dir)
  if [ ! -f "$image/disk.img" ] || [ ! -f "$image/vmlinuz" ] || [ ! -f "$image/initrd.img" ]; then
    echo "board: no board image in $image (build it with scripts/board-image)" >&2; return 1
  fi
}

board_start() {
  local run=$1; shift
  local image; image=$(board_image_dir)
  board_check_qemu || return 1
  mkdir -p "$run"
  run=$(cd "$run" && pwd)
  if [ ! -f "$run/disk.qcow2" ]; then
    qemu-img create -q -f qcow2 -F raw -b "$image/disk.img" "$run/disk.qcow2" || return 1
  fi
  [ -f "$run/console.log" ] && cat "$run/console.log" >> "$run/console-before.log"
  rm -f "$run/console.log" "$run/cmd.in" "$run/cmd.out" "$run/cmd.log" "$run/qemu.out"
  mkfifo "$run/cmd.in" "$run/cmd.out"
  : > "$run/cmd.log"
  date +%s.%N > "$run/power-on"
  qemu-system-arm -M virt -cpu cortex-a7 -smp 1 -m 512 -nodefaults -display none -no-reboot \
    -monitor none \
    -kernel "$image/vmlinuz" -initrd "$image/initrd.img" -append "$(cat "$image/cmdline")" \
    -drive "if=none,id=disk,file=$run/disk.qcow2,format=qcow2,cache=none" \
    -device virtio-blk-device,drive=disk \
    -chardev pty,id=hostline -serial chardev:hostline \
    -device virtio-serial-device \
    -chardev "file,id=console,path=$run/console.log" -device virtconsole,chardev=console \
    -chardev "pipe,id=cmd,path=$run/cmd" -device virtconsole,chardev=cmd,name=qv.cmd \
    "$@" > "$run/qemu.out" 2>&1 &
  echo $! > "$run/qemu.pid"
  # The guest shell's output, collected for board_run.
  cat "$run/cmd.out" >> "$run/cmd.log" &
  echo $! > "$run/cmd.pid"
  local _
  for _ in $(seq 1 100); do
    grep -q 'redirected to /dev/pts/[0-9]* (label hostline)' "$run/qemu.out" 2>/dev/null && break
    kill -0 "$(cat "$run/qemu.pid")" 2>/dev/null || break
    sleep 0.1
  done
  if ! grep -q '(label hostline)' "$run/qemu.out"; then
    echo "board: qemu-system-arm did not start:" >&2; cat "$run/qemu.out" >&2
    board_kill "$run"; return 1
  fi
  sed -n 's/.*redirected to \(\/dev\/pts\/[0-9]*\) (label hostline).*/\1/p' "$run/qemu.out" > "$run/host-tty"
}

board_host_tty() { cat "$1/host-tty"; }

board_alive() { [ -f "$1/qemu.pid" ] && kill -0 "$(cat "$1/qemu.pid")" 2>/dev/null; }

board_wait() {
  local run=$1 regex=$2 seconds=${3:-120} end
  end=$((SECONDS + seconds))
  while [ $SECONDS -lt $end ]; do
    grep -qE -- "$regex" "$run/console.log" 2>/dev/null && return 0
    board_alive "$run" || { grep -qE -- "$regex" "$run/console.log" 2>/dev/null; return; }
    sleep 0.2
  done
  echo "board: no console line like '$regex' within $seconds s" >&2
  return 1
}

board_run() {
  local run=$1 command=$2 seconds=${3:-60} tag end status
  tag="qv$RANDOM$RANDOM"
  local mark; mark=$(wc -c < "$run/cmd.log")
  # The guest shell reads the command line from hvc1; its output and a final
  # line with the status come back on the same port.
  printf '( %s ) 2>&1; echo "%s-status $?"\n' "$command" "$tag" > "$run/cmd.in"
  end=$((SECONDS + seconds))
  while [ $SECONDS -lt $end ]; do
    if tail -c +"$((mark + 1))" "$run/cmd.log" | grep -q "^$tag-status "; then
      tail -c +"$((mark + 1))" "$run/cmd.log" | tr -d '\r' | sed -n "/^$tag-status /q;p"
      status=$(tail -c +"$((mark + 1))" "$run/cmd.log" | tr -d '\r' | sed -n "s/^$tag-status //p" | head -n1)
      return "$status"
    fi
    board_alive "$run" || { echo "board: the machine is off" >&2; return 124; }
    sleep 0.2
  done
  echo "board: '$command' did not finish within $seconds s" >&2
  return 124
}

board_kill() {
  local run=$1 pid
  for f in qemu.pid cmd.pid; do
    [ -f "$run/$f" ] || continue
    pid=$(cat "$run/$f")
    kill -9 "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    rm -f "$run/$f"
  done
}

board_wait_off() {
  local run=$1 seconds=${2:-120} end
  end=$((SECONDS + seconds))
  while [ $SECONDS -lt $end ]; do
    board_alive "$run" || { board_kill "$run"; return 0; }
    sleep 0.2
  done
  return 1
}
