#!/usr/bin/env bash
# Runs examples/mixed.toml on every kind of drive that this machine can offer, and prints one line for each: commands,
# rates, findings, exit status. The drives are made for it and removed after it: a file, loop devices of 512 and
# 4096-byte blocks, and iSCSI logical units of both sizes (tgt, on 127.0.0.1 alone). Needs root, and the packages that the tests need.
#
#   scripts/mixed-runs.sh [TIME [KIND…]]    e.g. scripts/mixed-runs.sh 10m; KIND: file loop512 loop4096 iscsi512 iscsi4096
#
# One drive at a time, unless JOBS=N says how many at once.
set -uo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
corvane=$root/build/release/bin/corvane
duration=${1:-10m}
shift || true
kinds=("$@")
[ "${#kinds[@]}" -gt 0 ] || kinds=(file loop512 loop4096 iscsi512 iscsi4096)
drive_size=${SIZE:-256M}
jobs=${JOBS:-1}

[ -x "$corvane" ] || { echo "build it first: ./run" >&2; exit 2; }
work=$(mktemp -d "${TMPDIR:-/tmp}/corvane-mixed.XXXXXX")
loops=()
target_pid=
clean_up() {
  local device
  for device in "${loops[@]}"; do losetup -d "$device"; done
  # It ignores a plain end while it has a target.
  [ -z "$target_pid" ] || { kill -KILL "$target_pid"; wait "$target_pid" 2>/dev/null; }
  rm -rf "$work"
}
trap clean_up EXIT

# loop_device <block size>: sets "address"
loop_device() {
  truncate -s "$drive_size" "$work/loop$1.img"
  address=$(losetup --direct-io=on -b "$1" --show -f "$work/loop$1.img") || return 1
  loops+=("$address")
}

control=$((40 + RANDOM % 20))
port=$((20000 + RANDOM % 20000))
tgt() { tgtadm -C "$control" --lld iscsi "$@"; }

start_target() {
  tgtd -f -C "$control" -t 16 --iscsi portal="127.0.0.1:$port" >"$work/tgtd.log" 2>&1 &
  target_pid=$!
  local attempt
  for attempt in $(seq 50); do
    tgt --op show --mode sys >/dev/null 2>&1 && break
    sleep 0.1
  done
  tgt --op new --mode target --tid 1 -T iqn.2026-01.example.corvane:mixed &&
    tgt --op bind --mode target --tid 1 -I 127.0.0.1
}

# logical_unit <lun> <block size>: sets "address"
logical_unit() {
  [ -n "$target_pid" ] || start_target || return 1
  truncate -s "$drive_size" "$work/lun$1.img"
  tgt --op new --mode logicalunit --tid 1 --lun "$1" --blocksize "$2" --bstype rdwr -b "$work/lun$1.img" &&
    tgt --op update --mode logicalunit --tid 1 --lun "$1" --params thin_provisioning=1 || return 1
  address=iscsi://127.0.0.1:$port/iqn.2026-01.example.corvane:mixed/$1
}

# run_kind <kind> <address>
run_kind() {
  local log=$work/$1.log status commands written compared findings
  "$corvane" run "$root/examples/mixed.toml" --drive "$2" --time "$duration" --output "$work/out-$1" >"$log" 2>&1
  status=$?
  commands=$(sed -n 's/^  commands *\([0-9,]*\).*/\1/p' "$log")
  written=$(sed -n 's/^  written .*, //p' "$log")
  compared=$(sed -n 's/^  compared .*, //p' "$log")
  findings=$(sed -n 's/^  findings *//p' "$log")
  printf '%-10s %14s %14s %14s %9s %6s\n' "$1" "${commands:--}" "${written:--}" "${compared:--}" "${findings:--}" "$status"
  [ "$status" -eq 0 ] || { cat "$log" >&2; return 1; }
}

printf '%-10s %14s %14s %14s %9s %6s\n' drive commands written compared findings exit
failed=0
running=()
for kind in "${kinds[@]}"; do
  case $kind in
    file) address=file:$work/drive.img,size=${drive_size,,} ;;
    loop512 | loop4096) loop_device "${kind#loop}" ;;
    iscsi512) logical_unit 1 512 ;;
    iscsi4096) logical_unit 2 4096 ;;
    *) echo "'$kind' is not one of file, loop512, loop4096, iscsi512, iscsi4096" >&2; exit 2 ;;
  esac || { echo "$kind: this machine cannot offer it" >&2; failed=1; continue; }
  if [ "${#running[@]}" -ge "$jobs" ]; then
    wait "${running[0]}" || failed=1
    running=("${running[@]:1}")
  fi
  run_kind "$kind" "$address" &
  running+=($!)
done
for pid in "${running[@]}"; do wait "$pid" || failed=1; done
exit "$failed"
