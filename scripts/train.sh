#!/usr/bin/env bash
# Makes the trained build: a program that counts which ways its code takes, runs of it (scripts/training-runs.sh), and
# by what they counted the program itself, in build/release-trained. Why, and what it costs: docs/hacking.md.
#
#   scripts/train.sh [cmake options]    such as -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
#
# Exit status: 0; 1 when a training run did not end clean or a build failed; 2 when there is nothing to build with.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/common.sh"
profiles=$root/build/profile
for option in "$@"; do
  [[ $option == -D* ]] || { echo "usage: scripts/train.sh [-DNAME=VALUE…]" >&2; exit 2; }
done

log=$(mktemp)
trap 'rm -f "$log"' EXIT
# make_program <preset> [cmake options]: what the build says is of interest only when it fails.
make_program() {
  local preset=$1
  shift
  configure "$preset" "$@" -DCORVANE_PROFILE_DIR="$profiles"
  build "$preset" corvane_cli corvane_agent >"$log" 2>&1 || {
    cat "$log" >&2
    echo "train.sh: the build $preset failed" >&2
    exit 1
  }
}

install_packages packages.txt
echo "Building the recording program (build/release-recording)"
make_program release-recording "$@"

# Further runs are added to what is there, so nothing may be left of another training, and half of one is none.
rm -rf "$profiles"
echo "Training"
"$root/scripts/training-runs.sh" "$root/build/release-recording/bin/corvane" || {
  rm -rf "$profiles"
  echo "train.sh: a training run did not end clean, so nothing is learned from it" >&2
  exit 1
}

echo "Building the trained program (build/release-trained)"
make_program release-trained "$@"
echo "Trained: $root/build/release-trained/bin/corvane"
