#!/usr/bin/env bash
# The board emulated whole (scripts/board-image under qemu-system-arm): one
# case per run, named by the first argument.
#
#   boot       the PC's clock: the unit starts supervisor and daemon at boot; the
#              host receives the talker's direction within 2 degrees, and no other
#   service    the PC's clock: systemctl stop ends supervisor and daemon within the
#              unit's stop time-out; systemctl start brings both back
#   update     the PC's clock: sb --ymodem, paced at 11,520 B/s, sends another
#              armhf daemon build; the board answers "ymodem updata ok", reboots,
#              runs the new executable, and keeps the old one as quenvarile_Bak
#   powercut   the PC's clock: power cuts (SIGKILL to qemu) right after each of the
#              update's seven installation steps (BOARD_CUT_STEPS) and at BOARD_CUTS
#              (default 20) random moments, chained: the boot after a cut checks it
#              and starts the next; /root/quenvarile is one of the two executables,
#              byte for byte, and the host receives positions
#   realtime   deterministic clock (-icount shift=1,sleep=off, one core):
#              BOARD_REALTIME_SECONDS (default 180) of the board's own time
#              without an overrun or a full ring in the daemon's log
#   signed     the PC's clock: with a key installed after boot, an unsigned armhf
#              executable is refused; a signed daemon build is installed, runs
#              after the reboot and is kept after the supervisor's confirmation time
#   rollback   the PC's clock: a signed update that exits at once is installed;
#              after its reboot the supervisor puts the old daemon back, keeps the
#              failed file, and the host receives positions again
#
# Environment (set by tests/board/CMakeLists.txt): QV_HOST (quenvarile-host),
# QV_PACED_SB (quenvarile-paced-sb), QV_NEW_DAEMON (the other armhf daemon),
# BOARD_RUN (scratch directory).
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../.." && pwd)
# shellcheck source=../../scripts/board-lib.sh
. "$repo/scripts/board-lib.sh"
case_name=${1:?which case}
run=${BOARD_RUN:-$repo/build/board-vm/run}/$case_name
image=$(board_image_dir)
angle=$(cat "$image/angle")
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
finish() {
  board_kill "$run"
  if [ $failures -ne 0 ]; then
    echo "-- last console lines ($run/console.log):"
    tr -d '\r' < "$run/console.log" 2>/dev/null | tail -n 40
    echo "board $case_name: FAILED ($failures)"; exit 1
  fi
  echo "board $case_name: passed"; exit 0
}
# A test killed on its time-out leaves no machine running.
trap 'board_kill "$run"' EXIT
trap 'exit 1' TERM INT
board_check_qemu || { echo "FAIL: the emulated board cannot run (see above)"; exit 1; }
rm -rf "$run"
mkdir -p "$run"

# The daemon is up when the unit runs and the daemon, the supervisor's child,
# has opened its audio; prints the daemon's pid.
daemon_up() {
  board_wait "$run" 'velquare_audioprocess_init ok' "${1:-300}" || return 1
  board_run "$run" 'sup=$(systemctl show -p MainPID --value quenvarile); [ "$(cat /proc/$sup/comm)" = quenvarile-supe ] && pgrep -P "$sup" -x quenvarile'
}

# Host listens SECONDS: each direction seen, one per line.
host_directions() {
  "$QV_HOST" --device "$(board_host_tty "$run")" --listen "$1" > "$run/host.log" 2>&1
  sed -n 's/^position [0-9]*: \(-\{0,1\}[0-9]*\) degrees$/\1/p' "$run/host.log"
}

case $case_name in
boot)
  board_start "$run" || { fail "no power-on"; finish; }
  # The host listens from power-on; each line carries its time since then.
  start=$(cat "$run/power-on")
  "$QV_HOST" --device "$(board_host_tty "$run")" --listen 200 > >(while IFS= read -r line; do
    awk -v s="$start" -v n="$EPOCHREALTIME" -v l="$line" 'BEGIN { printf "%.1f %s\n", n - s, l }'
  done > "$run/host-boot.log") 2>&1 &
  listener=$!
  pid=$(daemon_up) || fail "the daemon did not start under the supervisor at boot"
  echo "   daemon pid $pid under quenvarile-supervise; $(grep -a -m1 'compile time' "$run/console.log" | tr -d '\r')"
  grep -aq "don't create wdg proc" "$run/console.log" || fail "no 'don't create wdg proc' (no GPIO on this board)"
  for _ in $(seq 1 120); do grep -q degrees "$run/host-boot.log" && break; sleep 1; done
  sleep 30
  kill "$listener" 2>/dev/null; wait "$listener" 2>/dev/null; sleep 0.5
  echo "   power-on to the first position frame: $(awk '/position/ { print $1; exit }' "$run/host-boot.log") s," \
       "to the first direction: $(awk '/degrees/ { print $1; exit }' "$run/host-boot.log") s (PC clock)"
  seen=$(sed -n 's/^[0-9.]* position [0-9]*: \(-\{0,1\}[0-9]*\) degrees$/\1/p' "$run/host-boot.log")
  if [ -z "$seen" ]; then
    fail "no direction within 150 s of power-on"
  else
    off=$(awk -v a="$angle" '{ d = $1 - a; if (d > 2 || d < -2) print $1 }' <<<"$seen" | sort -u | tr '\n' ' ')
    [ -z "$off" ] || fail "directions other than $angle +-2 degrees: $off"
    echo "   host: $(wc -l <<<"$seen") directions: $(sort -n <<<"$seen" | uniq -c | tr -s ' \n' ' ')"
  fi
  ;;
service)
  board_start "$run" || { fail "no power-on"; finish; }
  daemon_up >/dev/null || { fail "the daemon did not start at boot"; finish; }
  limit=$(board_run "$run" 'systemctl show -p TimeoutStopUSec --value quenvarile')
  took=$(board_run "$run" 's=$(date +%s%N); systemctl stop quenvarile; e=$(date +%s%N); echo $(( (e - s) / 1000000 ))')
  echo "   systemctl stop: $took ms (the unit's stop time-out: $limit)"
  left=$(board_run "$run" 'pgrep -l quenvarile')
  [ -z "$left" ] || fail "still running after the stop: $left"
  limit_ms=$(awk -v t="$limit" 'BEGIN { v = t + 0; if (t ~ /min/) v *= 60; print v * 1000 }')
  [ -n "$took" ] && [ "$took" -lt "$limit_ms" ] || fail "the stop took $took ms, the time-out is $limit"
  board_run "$run" 'journalctl -u quenvarile -o cat | grep -i "timed out\|SIGKILL"' && fail "systemd had to kill"
  board_run "$run" 'systemctl start quenvarile' || fail "systemctl start failed"
  for _ in $(seq 1 60); do
    board_run "$run" 'sup=$(systemctl show -p MainPID --value quenvarile); pgrep -P "$sup" -x quenvarile' >/dev/null && break
    sleep 1
  done
  board_run "$run" 'sup=$(systemctl show -p MainPID --value quenvarile); echo "   after start: supervisor $sup, daemon $(pgrep -P "$sup" -x quenvarile)"; pgrep -P "$sup" -x quenvarile >/dev/null' \
    || fail "systemctl start did not bring supervisor and daemon back"
  ;;
update)
  new=$run/quenvarile_ota
  cp "$QV_NEW_DAEMON" "$new"
  dpkg-deb --fsys-tarfile "$image/old.deb" | tar -xO ./root/quenvarile > "$run/old"
  cmp -s "$run/old" "$new" && { fail "the new daemon is the installed one"; finish; }
  board_start "$run" || { fail "no power-on"; finish; }
  daemon_up >/dev/null || { fail "the daemon did not start at boot"; finish; }
  host_directions 3 >/dev/null  # the line is open and reporting
  started=$SECONDS
  (cd "$run" && "$QV_PACED_SB" "$(board_host_tty "$run")" quenvarile_ota) > "$run/sender.log" 2>&1
  status=$?
  echo "   sb: $(( SECONDS - started )) s for $(stat -c %s "$new") bytes; the board's last words: $(tail -n 1 "$run/sender.log" | tail -c 60)"
  [ $status -eq 0 ] || fail "no 'ymodem updata ok' (see $run/sender.log, $run/sb.log)"
  board_wait_off "$run" 120 || fail "the board did not reboot"
  board_start "$run" || { fail "no power-on after the update"; finish; }
  daemon_up >/dev/null || fail "no daemon after the update's reboot"
  sums=$(board_run "$run" 'sha256sum /root/quenvarile /root/quenvarile_Bak /proc/$(pgrep -x quenvarile)/exe | cut -d" " -f1')
  want_new=$(sha256sum < "$new" | cut -d' ' -f1)
  want_old=$(sha256sum < "$run/old" | cut -d' ' -f1)
  [ "$(sed -n 1p <<<"$sums")" = "$want_new" ] || fail "/root/quenvarile is not the file sent"
  [ "$(sed -n 2p <<<"$sums")" = "$want_old" ] || fail "/root/quenvarile_Bak is not the old executable"
  [ "$(sed -n 3p <<<"$sums")" = "$want_new" ] || fail "the running daemon is not the new executable"
  echo "   after the reboot: $(grep -a -m1 'compile time' "$run/console.log" | tr -d '\r')"
  ;;
powercut)
  # Chains of cuts from the image's disk: each boot after a cut is both
  # the check of that cut and the start of the next, so every cut costs one
  # boot. The board holds one of two executables, the package's daemon (P) or
  # the update case's build with the power-cut seam (S); each transfer sends
  # the one not installed (a whole update brings S where a step cut needs
  # it). After every cut /root/quenvarile must be P or S
  # byte for byte and the host must receive a position.
  #   step cuts (BOARD_CUT_STEPS, default 1 to 7): S, started off trial, gets
  #     QV_SANDBOX_UPDATE_CUT_AFTER and ends right after that installation
  #     step (the supervisor's "ended: exit 86" on the console), then qemu is
  #     killed. After steps 1-5 S is still installed; after 7 (the directory
  #     flushed) P is; after 6 (the rename, not yet flushed) either may be.
  #     S must be off trial, or the supervisor would roll back when the seam
  #     ends it: a trial is waited out ("update kept").
  #   random cuts (BOARD_CUTS, default 20): at a moment drawn evenly from the
  #     transfer and installation; old and new are both right (the cut may
  #     also fall in an update's trial, which the supervisor may roll back).
  # BOARD_CUT_CHAINS (default 2) boards cut in parallel, each on its own copy of
  # the disk: the first takes the step cuts and a sixth of the random ones.
  dpkg-deb --fsys-tarfile "$image/old.deb" | tar -xO ./root/quenvarile > "$run/P"
  cp "$QV_NEW_DAEMON" "$run/S"
  sum_P=$(sha256sum < "$run/P" | cut -d' ' -f1)
  sum_S=$(sha256sum < "$run/S" | cut -d' ' -f1)

  # The step cut's daemon has ended after its step; a whole update's board
  # has rebooted (qemu ends).
  transfer_done() {
    if [[ $cut == step* ]]; then grep -aq 'ended: exit 86' "$run/console.log"; else ! board_alive "$run"; fi
  }
  # One board's chain: RUN STEPS RANDOMS; its failures are its exit status.
  cut_chain() {
    run=$1; failures=0
    local steps randoms=$3 cut="" sent="" before="" installed positions n=0 started booted listener sender mark transfer at end try
    read -r -a steps <<<"$2"
    mkdir -p "$run/send"
    started=$SECONDS booted=$SECONDS
    board_start "$run" || { fail "no power-on"; return "$failures"; }
    while :; do
      # The check of the last cut.
      installed=NODAEMON
      if daemon_up >/dev/null; then
        case $(board_run "$run" 'sha256sum /root/quenvarile | cut -d" " -f1') in
          "$sum_P") installed=P ;;
          "$sum_S") installed=S ;;
          *) installed=BROKEN ;;
        esac
      fi
      # The host listens until the first position (at most 90 s); a console
      # that found the line closed (its log says so) listens again.
      : > "$run/host.log"
      end=$((SECONDS + 90))
      while [ $SECONDS -lt $end ] && ! grep -q '^position' "$run/host.log"; do
        "$QV_HOST" --device "$(board_host_tty "$run")" --listen 90 >> "$run/host.log" 2>&1 &
        listener=$!
        while [ $SECONDS -lt $end ] && kill -0 "$listener" 2>/dev/null && ! grep -q '^position' "$run/host.log"; do
          sleep 0.2
        done
        kill "$listener" 2>/dev/null; wait "$listener" 2>/dev/null
        sleep 1
      done
      positions=$(grep -c '^position' "$run/host.log")
      if [ -n "$cut" ]; then
        case $installed in
          BROKEN) fail "$cut: /root/quenvarile is neither executable" ;;
          NODAEMON) fail "$cut: no daemon after the cut" ;;
        esac
        case $cut in
          step[1-5]) [ "$installed" = "$before" ] || fail "$cut: the new executable before the rename" ;;
          step7|none) [ "$installed" = "$sent" ] || fail "$cut: the old executable after the installation" ;;
        esac
        [ "$positions" -gt 0 ] || fail "$cut: no position frame after the cut"
        echo "   cut ${cut/#none/none (a whole update)}: $installed ($([ "$installed" = "$sent" ] && echo new || echo old));" \
             "a position $(( SECONDS - booted )) s after power-on; $(( SECONDS - started )) s from the transfer's start"
      fi
      [[ $installed == [PS] ]] || break
      [ ${#steps[@]} -eq 0 ] && [ "$randoms" -eq 0 ] && break
      n=$((n + 1))
      before=$installed
      sent=P; [ "$installed" = P ] && sent=S
      if [ ${#steps[@]} -gt 0 ] && [ "$installed" = S ]; then
        cut=step${steps[0]}; steps=("${steps[@]:1}")
        if board_run "$run" 'test -e /root/quenvarile_trial' >/dev/null; then
          board_wait "$run" 'update kept' 120 || fail "$cut: the trial did not end with the update kept"
        fi
        mark=$(wc -l < "$run/console.log")
        board_run "$run" "mkdir -p /run/systemd/system/quenvarile.service.d && printf '[Service]\\nEnvironment=QV_SANDBOX_UPDATE_CUT_AFTER=${cut#step}\\n' > /run/systemd/system/quenvarile.service.d/cut.conf && systemctl daemon-reload && systemctl restart quenvarile" >/dev/null \
          || fail "$cut: the daemon was not restarted with the cut"
        for _ in $(seq 1 300); do
          tail -n +"$mark" "$run/console.log" | grep -aq 'velquare_audioprocess_init ok' && break; sleep 0.2
        done
      elif [ "$randoms" -gt 0 ] && [ ${#steps[@]} -eq 0 ]; then
        randoms=$((randoms - 1))
        # The wait for the file, the transfer at about 2 KB/s, the installation.
        transfer=$(( $(stat -c %s "$run/../$sent") / 2000 + 10 ))
        at=$(( RANDOM % (transfer * 10) ))
        cut=at$((at / 10)).$((at % 10))s
      else
        cut=none  # step cuts left and P installed: a whole update puts S back
      fi
      cp "$run/../$sent" "$run/send/quenvarile_ota"
      started=$SECONDS
      for try in 1 2 3 4 5; do
        mark=$(wc -l < "$run/console.log")
        (cd "$run/send" && exec "$QV_PACED_SB" "$(board_host_tty "$run")" quenvarile_ota) >> "$run/sender-$n.log" 2>&1 &
        sender=$!
        case $cut in
          step*|none)
            # A transfer the loaded PC broke (a pause inside a block ends it;
            # the board answers "ymodem updata err" and goes on) is sent again.
            end=$((SECONDS + 240))
            until transfer_done || [ $SECONDS -ge $end ] \
                || tail -n +"$mark" "$run/console.log" | grep -aq 'finished_state err'; do sleep 0.2; done
            transfer_done && break
            kill "$sender" 2>/dev/null; wait "$sender" 2>/dev/null
            [ $SECONDS -ge $end ] && break
            [ $try -lt 5 ] && echo "   $cut: the transfer broke (try $try); sending again"
            sleep 12 ;;
          at*) sleep "${cut#at}"; break ;;
        esac
      done
      transfer_done || case $cut in
        step*) fail "$cut: the daemon did not end after step ${cut#step}" ;;
        none) fail "the board did not reboot after a whole update" ;;
      esac
      board_kill "$run"
      kill "$sender" 2>/dev/null; wait "$sender" 2>/dev/null
      booted=$SECONDS
      board_start "$run" || { fail "$cut: no power-on after the cut"; break; }
    done
    board_kill "$run"
    echo "   $n transfers"
    return "$failures"
  }

  chains=${BOARD_CUT_CHAINS:-2}
  randoms=${BOARD_CUTS:-20}
  first=$(( chains > 1 ? randoms / 6 : randoms ))
  trap 'for d in "$run"/chain*/; do board_kill "$d"; done' EXIT
  pids=()
  for c in $(seq 1 "$chains"); do
    if [ "$c" -eq 1 ]; then plan=("${BOARD_CUT_STEPS:-1 2 3 4 5 6 7}" "$first")
    else plan=("" $(( (randoms - first) / (chains - 1) + (c == 2 ? (randoms - first) % (chains - 1) : 0) )))
    fi
    cut_chain "$run/chain$c" "${plan[@]}" > "$run/chain$c.log" 2>&1 &
    pids+=($!)
  done
  for c in $(seq 1 "$chains"); do
    wait "${pids[$((c - 1))]}"; status=$?
    echo "-- board $c:"; cat "$run/chain$c.log"
    failures=$((failures + status))
  done
  ;;
realtime)
  seconds=${BOARD_REALTIME_SECONDS:-180}
  board_start "$run" -icount shift=1,sleep=off || { fail "no power-on"; finish; }
  daemon_up 900 >/dev/null || { fail "the daemon did not start at boot"; finish; }
  t0=$(board_run "$run" 'cut -d. -f1 /proc/uptime')
  started=$SECONDS
  while :; do
    now=$(board_run "$run" 'cut -d. -f1 /proc/uptime' 600) || { fail "the guest shell stopped answering"; break; }
    [ $((now - t0)) -ge "$seconds" ] && break
    sleep 10
  done
  echo "   $seconds s of the board's time (deterministic clock, shift=1) took $(( SECONDS - started )) s on the PC"
  bad=$(tr -d '\r' < "$run/console.log" | grep -a -i -E 'overrun|audio is full|xrun' | head -n 5)
  [ -z "$bad" ] || fail "the daemon fell behind: $bad"
  ;;
signed)
  # A key pair made now; its public key goes into the key directory that the
  # daemon names at start-up, after boot. An unsigned armhf executable is then
  # refused; the signed daemon build is installed and, once the supervisor's
  # confirmation time (the unit's default, 60 s) has passed, kept.
  minisign -G -W -p "$run/update.pub" -s "$run/update.key" >/dev/null || { fail "no key pair"; finish; }
  "$repo/scripts/sign-update" "$run/update.key" "$QV_NEW_DAEMON" "$run/signed" || { fail "not signed"; finish; }
  printf 'int main(void) { return 0; }\n' | arm-linux-gnueabihf-gcc -x c -o "$run/unsigned" - || { fail "no armhf program"; finish; }
  board_start "$run" || { fail "no power-on"; finish; }
  daemon_up >/dev/null || { fail "the daemon did not start at boot"; finish; }
  keys=$(tr -d '\r' < "$run/console.log" | sed -n 's/.*update: no key in \(.*\): updates are not authenticated$/\1/p' | head -n 1)
  [ -n "$keys" ] || { fail "no start-up line saying updates are not authenticated"; finish; }
  board_run "$run" "mkdir -p '$keys' && printf '%s\\n' $(sed "s/.*/'&'/" "$run/update.pub" | tr '\n' ' ') > '$keys/update.pub'" \
    || { fail "the key was not installed"; finish; }
  old_sum=$(board_run "$run" 'sha256sum /root/quenvarile | cut -d" " -f1')
  cp "$run/unsigned" "$run/quenvarile_ota"
  (cd "$run" && "$QV_PACED_SB" "$(board_host_tty "$run")" quenvarile_ota) > "$run/sender-unsigned.log" 2>&1
  grep -q 'ymodem updata err' "$run/sender-unsigned.log" || fail "the unsigned file got no 'ymodem updata err'"
  [ "$(board_run "$run" 'sha256sum /root/quenvarile | cut -d" " -f1')" = "$old_sum" ] || fail "the unsigned file changed /root/quenvarile"
  cp "$run/signed" "$run/quenvarile_ota"
  (cd "$run" && "$QV_PACED_SB" "$(board_host_tty "$run")" quenvarile_ota) > "$run/sender.log" 2>&1 \
    || fail "the signed file got no 'ymodem updata ok' (see $run/sender.log)"
  board_wait_off "$run" 120 || fail "the board did not reboot"
  board_start "$run" || { fail "no power-on after the update"; finish; }
  daemon_up >/dev/null || fail "no daemon after the update's reboot"
  board_wait "$run" 'update kept' 180 || fail "the supervisor did not keep the update"
  sums=$(board_run "$run" 'sha256sum /root/quenvarile /proc/$(pgrep -x quenvarile)/exe | cut -d" " -f1; ls /root/quenvarile_trial 2>/dev/null')
  want=$(sha256sum < "$run/signed" | cut -d' ' -f1)
  [ "$(sed -n 1p <<<"$sums")" = "$want" ] || fail "/root/quenvarile is not the signed file"
  [ "$(sed -n 2p <<<"$sums")" = "$want" ] || fail "the running daemon is not the signed file"
  [ -z "$(sed -n 3p <<<"$sums")" ] || fail "the trial mark is still there"
  echo "   $(tr -d '\r' < "$run/console.log" | grep -a -m1 'update kept')"
  ;;
rollback)
  # A signed update that exits at once is installed; after its reboot the
  # supervisor puts the old daemon back (one line), keeps the failed file, and
  # the host receives positions from the old daemon again.
  minisign -G -W -p "$run/update.pub" -s "$run/update.key" >/dev/null || { fail "no key pair"; finish; }
  printf 'int main(void) { return 3; }\n' | arm-linux-gnueabihf-gcc -x c -o "$run/bad" - || { fail "no armhf program"; finish; }
  "$repo/scripts/sign-update" "$run/update.key" "$run/bad" "$run/quenvarile_ota" || { fail "not signed"; finish; }
  board_start "$run" || { fail "no power-on"; finish; }
  daemon_up >/dev/null || { fail "the daemon did not start at boot"; finish; }
  keys=$(tr -d '\r' < "$run/console.log" | sed -n 's/.*update: no key in \(.*\): updates are not authenticated$/\1/p' | head -n 1)
  board_run "$run" "mkdir -p '$keys' && printf '%s\\n' $(sed "s/.*/'&'/" "$run/update.pub" | tr '\n' ' ') > '$keys/update.pub'" \
    || { fail "the key was not installed"; finish; }
  old_sum=$(board_run "$run" 'sha256sum /root/quenvarile | cut -d" " -f1')
  (cd "$run" && "$QV_PACED_SB" "$(board_host_tty "$run")" quenvarile_ota) > "$run/sender.log" 2>&1 \
    || { fail "the bad update got no 'ymodem updata ok' (see $run/sender.log)"; finish; }
  board_wait_off "$run" 120 || fail "the board did not reboot"
  board_start "$run" || { fail "no power-on after the update"; finish; }
  daemon_up >/dev/null || fail "no daemon after the rollback"
  rolled=$(tr -d '\r' < "$run/console.log" | grep -a 'update rolled back')
  [ "$(grep -c . <<<"$rolled")" = 1 ] || fail "not one rollback line: $rolled"
  echo "   $rolled"
  sums=$(board_run "$run" 'sha256sum /root/quenvarile /root/quenvarile_failed /proc/$(pgrep -x quenvarile)/exe | cut -d" " -f1; ls /root/quenvarile_trial 2>/dev/null')
  [ "$(sed -n 1p <<<"$sums")" = "$old_sum" ] || fail "/root/quenvarile is not the old executable"
  [ "$(sed -n 2p <<<"$sums")" = "$(sha256sum < "$run/quenvarile_ota" | cut -d' ' -f1)" ] || fail "the failed file was not kept"
  [ "$(sed -n 3p <<<"$sums")" = "$old_sum" ] || fail "the running daemon is not the old executable"
  [ -z "$(sed -n 4p <<<"$sums")" ] || fail "the trial mark is still there"
  "$QV_HOST" --device "$(board_host_tty "$run")" --listen 15 > "$run/host.log" 2>&1
  grep -q '^position' "$run/host.log" || fail "no position frame from the old daemon"
  ;;
*) echo "unknown case $case_name"; exit 2 ;;
esac
finish
