#!/usr/bin/env bash
# The estimator of the board's build against the build machine's: simulated
# recordings are replayed by the native quenvarile-replay and by the board's
# one under emulation; the published directions must be identical on at least
# 99.9 % of frames and never more than one grid step apart.
#
#   replay_compare.sh <native simulate> <native replay> <board replay> <work dir>
#
# The board's replay is a program path that runs under the emulator by itself.
set -euo pipefail
simulate=$1 replay_native=$2 replay_board=$3 work=$4
for tool in "$simulate" "$replay_native"; do
  [ -x "$tool" ] || { echo "replay_compare: $tool is not built (build the native tools first)"; exit 1; }
done

rm -rf "$work"
mkdir -p "$work"
# A talker moving across the front in pink noise after a second of quiet; the
# same talker at 60 degrees while the loudspeaker plays from 3 s on.
"$simulate" --snr 10 --lead 1 --seconds 8 synthetic:7 0:45,4:-30 \
  "$work/moving.wav" "$work/moving-linein.wav" 2>/dev/null
"$simulate" --seconds 6 synthetic:6 0 "$work/voice.wav" "$work/voice-linein.wav" 2>/dev/null
"$simulate" --snr 20 --speaker "$work/voice.wav" --speaker-start 3 --seconds 8 synthetic:8 60 \
  "$work/speaker.wav" "$work/speaker-linein.wav" 2>/dev/null

status=0
for rec in moving speaker; do
  in=("$work/$rec.wav" "$work/$rec-linein.wav")
  "$replay_native" --spectrum "$work/$rec.native.csv" "${in[@]}" >"$work/$rec.native" 2>/dev/null
  "$replay_board" --spectrum "$work/$rec.armhf.csv" "${in[@]}" >"$work/$rec.armhf" 2>/dev/null
  frames=$(wc -l <"$work/$rec.native")
  if [ "$frames" -eq 0 ]; then echo "$rec: the native replay published nothing"; status=1; continue; fi
  # The two builds run different arithmetic (transforms, the scan's vector
  # code, libm): their spectra agree only up to rounding, so a direction may
  # differ where a last-bit difference decides a near-tie. The rule: identical
  # on at least 99.9 % of frames, and a differing frame is one grid step apart.
  rows=$(diff "$work/$rec.native.csv" "$work/$rec.armhf.csv" | grep -c '^<' || true)
  verdict=$(paste -d, "$work/$rec.native" "$work/$rec.armhf" | awk -F, '
    $2 != $4 { d = $2 - $4; if ($1 != $3 || $2 > 180 || $4 > 180 || d > 1 || d < -1) far++; else near++ }
    END { n = NR; bad = far > 0 || (near + far) * 1000 > n || n == 0
          printf "%s %d frames, %d one step apart, %d further", bad ? "FAIL" : "ok", n, near, far }')
  if [ "$(wc -l <"$work/$rec.armhf")" -ne "$frames" ]; then verdict="FAIL armhf replay has a different frame count"; fi
  echo "$rec: ${verdict#* } (spectra differ in $rows frames)"
  if [ "${verdict%% *}" != ok ]; then
    diff "$work/$rec.native" "$work/$rec.armhf" | head -20
    status=1
  fi
done
exit $status
