#!/usr/bin/env bash
# Takes the picture of README.md and docs/report.md: runs an example on a drive that loses a write, makes the page of
# it, and opens that in Chromium.
#
#   scripts/screenshot.sh [corvane] [picture] [further words for page_screenshot.py]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
corvane=$(realpath "${1:-$root/build/release/bin/corvane}")
picture=$(realpath -m "${2:-$root/docs/images/report.png}")
shift $(($# < 2 ? $# : 2))
most_bytes=300000
[ -x "$corvane" ] || { echo "screenshot: '$corvane' is not built: cmake --build --preset release" >&2; exit 2; }
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
status=0
"$corvane" run "$root/examples/quick.toml" --seed 1 --fault lost-write:at=command:500 >run.log 2>&1 || status=$?
[ "$status" -eq 1 ] || { cat run.log >&2; echo "screenshot: the lost write was not found" >&2; exit 4; }
"$corvane" report corvane-out >/dev/null
mkdir -p "$(dirname "$picture")"
python3 "$root/scripts/page_screenshot.py" corvane-out/report.html "$picture" --height 1150 "$@"
bytes=$(stat -c %s "$picture")
echo "$picture: $bytes bytes"
[ "$bytes" -lt "$most_bytes" ] || { echo "screenshot: more than $most_bytes bytes" >&2; exit 1; }
