#!/usr/bin/env bash
# Measures what checking costs: installs what is missing, builds, and prints the tables of docs/performance.md. What was
# measured goes to out/*.json too. More than an hour on an idle machine; with --quick minutes, to see whether it works,
# and of the plain release build alone.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/common.sh"

case "$*" in '' | --quick) ;; *)
  echo "bench.sh: no other argument than --quick; the scripts in bench/ have more" >&2
  exit 2
  ;;
esac
install_packages packages.txt packages.bench.txt
configure release # again, because only now callgrind's header is sure to be there
build release corvane_cli corvane_agent vs_fio_floor instruction_scenarios >/dev/null
mkdir -p "$root/out"
# Grown instructions are a result like the others, and no reason to leave them out.
status=0
"$root/bench/instructions/run" --json "$root/out/instructions.json" || status=$?
# What packages hold is compared with fio; making it takes some minutes.
trained=$root/build/release/bin/corvane
if [ "$*" = "" ]; then
  "$root/scripts/train.sh"
  trained=$root/build/release-trained/bin/corvane
fi
# On one processor, where nobody wakes a thread of the kernel on another one for every command; then wherever it likes.
"$root/bench/vs_fio/run" --processor 0 --medium tmpfs --medium disk --medium disk-direct \
  --corvane "$trained" --json "$root/out/vs_fio.json" "$@"
"$root/bench/vs_fio/run" --engine uring --order sequential --corvane "$trained" \
  --json "$root/out/vs_fio_anywhere.json" "$@"
"$root/bench/growth/run" --corvane "$trained" --json "$root/out/growth.json" "$@"
exit "$status"
