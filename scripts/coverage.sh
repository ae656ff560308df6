#!/usr/bin/env bash
# Says which lines of the agent are reached by the end-to-end tests alone, and which by all its tests; needs the
# Debian package gcovr, and installs it where it may.
#
#   scripts/coverage.sh [percent]               both; 95 percent when none is given
#   scripts/coverage.sh --e2e-only [percent]    the end-to-end tests alone
#
# Exit status: 0; 1 when the last report shows fewer covered lines than that; 2 when there is nothing to report.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/common.sh"
built=$root/build/coverage

e2e_only=false
if [ "${1:-}" = --e2e-only ]; then
  e2e_only=true
  shift
fi
percent=${1:-95}
[[ $# -le 1 && $percent =~ ^[0-9]+(\.[0-9]+)?$ ]] || { echo "usage: scripts/coverage.sh [--e2e-only] [percent]" >&2; exit 2; }

require_gcovr() {
  command -v gcovr >/dev/null && return
  if [ "$(id -u)" -eq 0 ]; then
    echo "Installing the Debian package gcovr"
    apt-get update >/dev/null 2>&1 || true
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends gcovr >/dev/null 2>&1 || true
  fi
  command -v gcovr >/dev/null || { echo "gcovr is not installed: as root, apt-get install gcovr" >&2; exit 2; }
}

# run_tests <folder of tests/>: a failed test leaves nothing that could be trusted
run_tests() {
  ctest --test-dir "$built/tests/$1" --output-on-failure --no-tests=error -j "$(nproc)" >"$built/ctest_$1.log" ||
    { cat "$built/ctest_$1.log"; echo "Tests failed: no coverage is reported" >&2; exit 2; }
  tail -n 4 "$built/ctest_$1.log"
}

# report <title> <percent> <folders of objects>: the figures file by file, then every line that was not reached.
report() {
  local title=$1 least=$2 status=0
  shift 2
  echo "== $title"
  gcovr --root "$root" --filter "$root/plugin/Write_Data_Gen/" --no-markers -j "$(nproc)" --fail-under-line "$least" \
    --txt --json "$built/coverage.json" "$@" || status=$?
  [ "$status" -eq 0 ] || [ "$status" -eq 2 ] || exit 2 # gcovr's 2: fewer lines than asked for
  echo "Lines not reached:"
  python3 - "$built/coverage.json" "$root" <<'END'
import json, pathlib, sys
for file in json.load(open(sys.argv[1]))["files"]:
    text = pathlib.Path(sys.argv[2], file["file"]).read_text().splitlines()
    for line in file["lines"]:
        if line["count"] == 0 and not line["gcovr/noncode"]:
            number = line["line_number"]
            print(f"{file['file']}:{number}: {text[number - 1].strip()}")
END
  [ "$status" -eq 0 ] || { echo "Less than $least percent"; exit 1; }
}

require_gcovr
configure coverage
build coverage tests/e2e/all tests/selftest/all corvane_cli || exit 2
find "$built" -name '*.gcda' -delete
run_tests e2e
run_tests selftest
if $e2e_only; then
  report "The agent under the end-to-end tests alone" "$percent" "$built/plugin"
  exit 0
fi
report "The agent under the end-to-end tests alone" 0 "$built/plugin"

build coverage tests/plugin/all || exit 2
run_tests plugin
# An inline function may be the one of a test's object, which then counts for it.
report "The agent under all its tests" "$percent" "$built/plugin" "$built/tests/plugin"
