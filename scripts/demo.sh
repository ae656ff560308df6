#!/usr/bin/env bash
# The main job of ./run: demo.sh <corvane> <output folder> <folder of examples>
set -euo pipefail
corvane=$1
out=$2
examples=$3
rm -rf "$out"
mkdir -p "$out"
cd "$out"

title() { printf '\n=== %s\n' "$*"; }

byte_at() { od -An -v -tu1 -j "$2" -N 1 "$1" | tr -d ' '; }

flip_byte() {
  local flipped
  flipped=$(printf '%02x' $(($(byte_at "$1" "$2") ^ 1)))
  printf "\\x$flipped" | dd of="$1" bs=1 seek="$2" conv=notrunc,fsync status=none
}

title "1. A good drive: a regular file and a drive in memory, side by side"
"$corvane" run --drive file:good.img,size=256m --drive sim:1g --time 10s --queue-depth 32 --xfer 1..64 --seed 1 \
  --commands-of write,read,verify --output good --json good.json

title "2. The same file drive, but somebody flips one byte of the file behind its back"
# Written from the first block on, 1024 writes before the first read-back, slowly enough for a hand to get between.
"$corvane" run --drive file:flipped.img,size=256m --commands 6000 --queue-depth 8 --xfer 64..64 --seed 1 \
  --lba-agent sequential --rate 1500 --commands-of write,read --output flipped --json flipped.json \
  --set "Min Queue Size=1024" --set "Max Queue Size=2048" &
run=$!
offset=$((500 * 512 + 100))
for ((i = 0; i < 600; i++)); do
  # A written block carries its LBA in bytes 8 to 15; it is read back more than 1000 writes later.
  [ -s flipped.img ] && [ "$(byte_at flipped.img $((offset - offset % 512 + 15)))" != 0 ] && break
  sleep 0.05
done
flip_byte flipped.img "$offset"
echo "    (byte $offset of flipped.img, byte 100 of block 500, now differs in one bit)"
status=0
wait "$run" || status=$?

[ "$status" -eq 1 ] || { echo "The flipped byte was not found (exit status $status)" >&2; exit 4; }

title "3. What it left (exit status $status)"
ls -l flipped
"$corvane" report flipped.json --output flipped/report.html

title "4. A test file, on a drive that loses one write"
status=0
"$corvane" run "$examples/quick.toml" --seed 1 --fault lost-write:at=command:500 --output lost || status=$?
"$corvane" report lost
[ "$status" -eq 1 ] || { echo "The lost write was not found (exit status $status)" >&2; exit 4; }
