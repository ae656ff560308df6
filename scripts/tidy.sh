#!/usr/bin/env bash
# Runs clang-tidy over every source of the project; needs the Debian package clang-tidy-14.
#
#   scripts/tidy.sh [files]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/common.sh"
command -v clang-tidy-14 >/dev/null || { echo "clang-tidy-14 is not installed: apt-get install clang-tidy-14" >&2; exit 2; }
# Apart from other builds: of headers that gcc has compiled, clang can read nothing.
configure debug -B build/tidy -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
cd "$root"
if [ $# -gt 0 ]; then
  files=("$@")
else
  mapfile -t files < <(git ls-files '*.cpp' | grep -vE '^tests/(run/plugins|package/outside_agent)/')
fi
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy-14 -p build/tidy --quiet --extra-arg=-Wno-unknown-warning-option 2>/dev/null
