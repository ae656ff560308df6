#!/usr/bin/env bash
# Runs examples/mixed.toml on every kind of drive that this machine can offer, and prints one line for each: commands,
# rates, findings, exit status. The drives are made for it and removed after it: a file, loop devices of 512 and
# 4096-byte blocks, iSCSI logical units of both sizes (tgt, on 127.0.0.1 alone), and in a guest SCSI generic devices and NVMe
# namespaces of both sizes. Needs root, and the packages that the tests need.
#
#   scripts/mixed-runs.sh [SECONDS [KIND…]]    e.g. scripts/mixed-runs.sh 600 loop512 guest512
#
# The kinds are file, loop512, loop4096, iscsi512, iscsi4096, guest512 and guest4096; without one, all. One drive at a time,
# unless JOBS=N says how many at once; the two drives of a guest always run at the same time.
set -uo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
corvane=$root/build/release/bin/corvane
seconds=${1:-600}
shift || true
kinds=("$@")
[ "${#kinds[@]}" -gt 0 ] || kinds=(file loop512 loop4096 iscsi512 iscsi4096 guest512 guest4096)
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
run_kind() { sh "$root/scripts/mixed-one.sh" "$1" "$corvane" "$root/examples/mixed.toml" "$2" "${seconds}s" "$work/$1"; }

# run_guest <block size>: a guest's starting and ending come on top of the test's time.
run_guest() {
  local script=$work/guest$1.sh
  cat >"$script" <<END
status=0
sh ./mixed-one.sh sg$1 corvane mixed.toml sg:/dev/sg0 ${seconds}s sg & sg=\$!
sh ./mixed-one.sh nvme$1 corvane mixed.toml nvme:/dev/nvme0n1 ${seconds}s nvme || status=1
wait \$sg || status=1
exit \$status
END
  "$root/scripts/guest/run.sh" --scsi "dev_size_mb=256 sector_size=$1 lbpws=1" --nvme "$1,size=$drive_size" \
    --file "$root/scripts/mixed-one.sh" --file "$root/examples/mixed.toml" --script "$script" --time $((seconds + 300))
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
    guest512 | guest4096) address= ;;
    *) echo "'$kind' is not one of file, loop512, loop4096, iscsi512, iscsi4096, guest512, guest4096" >&2; exit 2 ;;
  esac || { echo "$kind: this machine cannot offer it" >&2; failed=1; continue; }
  if [ "${#running[@]}" -ge "$jobs" ]; then
    wait "${running[0]}" || failed=1
    running=("${running[@]:1}")
  fi
  if [[ $kind == guest* ]]; then
    run_guest "${kind#guest}" &
  else
    run_kind "$kind" "$address" &
  fi
  running+=($!)
done
for pid in "${running[@]}"; do wait "$pid" || failed=1; done
exit "$failed"
