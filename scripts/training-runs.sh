#!/usr/bin/env bash
# The runs that a trained build learns from (scripts/train.sh): every kind of command, short and long ones, through
# plain calls and through io_uring (or threads, where the kernel refuses it), on a file in memory, and what only the
# simulated drive carries out. Fixed seeds.
#
#   scripts/training-runs.sh CORVANE [DIVISOR]    every run is so many times shorter; 1 when none is given
#
# What is written goes to a folder of its own, in /dev/shm or, where that is missing or small, in build/, and is removed
# at the end.
# Exit status: 0; 1 when a run did not end clean; 2 for wrong arguments.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
[[ $# -ge 1 && $# -le 2 && ${2:-1} =~ ^[1-9][0-9]*$ ]] || {
  echo "usage: scripts/training-runs.sh CORVANE [DIVISOR]" >&2
  exit 2
}
[ -x "$1" ] || { echo "training-runs.sh: '$1' is not a program" >&2; exit 2; }
corvane=$(realpath "$1")
divisor=${2:-1}

memory=/dev/shm
# A file of 64 MiB, and some room.
if [ ! -w "$memory" ] || [ "$(df --output=avail -k "$memory" | tail -1)" -lt 100000 ]; then
  memory=$root/build
  mkdir -p "$memory"
fi
folder=$(mktemp -d "$memory/corvane-training.XXXXXX")
trap 'rm -rf "$folder"' EXIT

# train <address> <commands> <flags…>
train() {
  local address=$1 commands=$(($2 / divisor)) status=0
  shift 2
  "$corvane" run --drive "$address" --commands "$commands" --seed 1 --output "$folder/out" "$@" >"$folder/log" 2>&1 ||
    status=$?
  [ "$status" -eq 0 ] && return
  cat "$folder/log" >&2
  echo "training-runs.sh: exit status $status of: corvane run --drive $address --commands $commands $*" >&2
  exit 1
}

# So many commands of each length that none makes the others look rare.
for engine in sync,1 auto,32; do
  file=file:$folder/drive.img,size=64m,direct=off,engine=${engine%,*}
  for order in sequential mixed; do
    place=(--queue-depth "${engine#*,}" --lba-agent "$order")
    train "$file" 150000 --xfer 1..1 "${place[@]}"
    train "$file" 40000 --xfer 8..8 "${place[@]}"
    train "$file" 2000 --xfer 256..256 "${place[@]}"
    train "$file" 20000 --xfer 1..32 --commands-of "write=4,writesame,trim,read=3,verify" "${place[@]}" \
      --reset-every 5000 --set "Write Splice Detection=true"
  done
done

simulated() {
  train "$@" --queue-depth 16 --set "Bucket Count=4096" --set "Min Queue Size=64" --set "Max Queue Size=512"
}
simulated sim:64m 40000 --xfer 1..32 --commands-of "write,atomic,writesame,trim,read,verify"
simulated sim:64m 20000 --xfer 1..8 --lba-agent cachestress --fua --invalidate-every 500 --set "Slide Reads=true"
simulated sim:65m,pi=8 20000 --xfer 1..8 --e2e 30
simulated sim:64m,abort=0.01,recovered=0.01 20000 --xfer 1..16 --commands-of "write,atomic,trim,read,verify" \
  --reset-every 2000 --set "Write Splice Detection=true"
simulated sim:64m,zones=1m,zonemodel=managed 20000 --xfer 1..16 --zone-reset-every 500
