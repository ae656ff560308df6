#!/usr/bin/env bash
# Runs the tests of a target that come with libiscsi (Debian package libiscsi-bin), then a mixed test of Corvane, then
# those tests again, on a target of its own (Debian package tgt), and says what differs.
#
#   scripts/iscsi-suite.sh [corvane]     the program; build/release/bin/corvane when none is given
#
# Needs root. Exit status: 0 when each suite ended alike before and after; 1 when one did not, or Corvane did not end
# clean; 2 when it cannot be done here.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
corvane=${1:-$root/build/release/bin/corvane}
target=iqn.2026-01.corvane.suite:disk
control=$((27200 + $$ % 5000)) # tgtd takes up to 32767

[ "$(id -u)" -eq 0 ] || { echo "tgtd wants root" >&2; exit 2; }
for tool in tgtd tgtadm iscsi-test-cu; do
  command -v "$tool" >/dev/null || { echo "$tool is not installed: apt-get install tgt libiscsi-bin" >&2; exit 2; }
done
[ -x "$corvane" ] || { echo "$corvane is not built" >&2; exit 2; }

folder=$(mktemp -d)
daemon=
cleanup() {
  if [ -n "$daemon" ]; then
    kill -9 "$daemon" 2>/dev/null || true
    wait "$daemon" 2>/dev/null || true
  fi
  rm -rf "$folder" "/var/run/tgtd/socket.$control" "/var/run/tgtd/socket.$control.lock"
}
trap cleanup EXIT

start_target() {
  for port in $(shuf -i 40000-60000 -n 20); do
    tgtd -f -C "$control" -t 16 --iscsi "portal=127.0.0.1:$port" >"$folder/tgtd.log" 2>&1 &
    daemon=$!
    sleep 1
    # On a port that is taken it listens elsewhere and says nothing.
    if ss -Hltnp "sport = :$port" | grep -q "127.0.0.1:$port .*pid=$daemon,"; then
      return
    fi
    kill -9 "$daemon"
  done
  echo "tgtd finds no port" >&2
  exit 2
}

admin() { timeout 10 tgtadm -C "$control" --lld iscsi "$@"; }

truncate -s 128m "$folder/unit.img"
start_target
admin --op new --mode target --tid 1 -T "$target"
admin --op new --mode logicalunit --tid 1 --lun 1 -b "$folder/unit.img"
admin --op update --mode logicalunit --tid 1 --lun 1 --params thin_provisioning=1
admin --op bind --mode target --tid 1 -I ALL
address=iscsi://127.0.0.1:$port/$target/1

suites() { iscsi-test-cu --list | grep -E '^[A-Za-z]+\.[A-Za-z0-9]+$' | grep '^ALL\.' | sort -u; }

# One suite a process, so that one that hangs or crashes takes no other along. A line a suite with how it ended,
# one with its tests (all, run, passed, failed), and one with its asserts that failed; some make more of them, some fewer.
run_suites() {
  for suite in $(suites); do
    status=0
    timeout 60 iscsi-test-cu -d -n -t "$suite" "$address" >"$folder/out" 2>&1 || status=$?
    echo "$suite exit $status"
    awk -v suite="$suite" '$1 == "tests" { print suite, $0 } $1 == "asserts" { print suite, $1, $5 }' "$folder/out"
  done
}

run_suites >"$folder/before"
timeout 300 "$corvane" run --drive "$address" --commands 20000 --commands-of write,writesame,trim,read,verify \
  --xfer 1..32 --reset-every 2000 --output "$folder/corvane" >"$folder/run.txt" 2>&1 || {
  cat "$folder/run.txt"
  echo "Corvane did not end clean"
  exit 1
}
run_suites >"$folder/after"
echo "$(wc -l <"$folder/before") results before, $(wc -l <"$folder/after") after"
awk '/ exit / { suites++; good += $3 == 0 } / tests / { run += $4; passed += $5 } END {
  printf "%d of %d suites ended with status 0; %d of %d tests that ran passed\n", good, suites, passed, run }' "$folder/before"
if ! diff "$folder/before" "$folder/after"; then
  echo "The target does not answer as before"
  exit 1
fi
echo "Alike before and after"
