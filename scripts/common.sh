# Shared by ./run and ./test: installs what is missing, then configures and builds.
# Sourced, not run; the caller has set "root" to the project's folder.

# packages_missing <lists>
packages_missing() {
  local package
  # A list may end without a line break.
  awk 1 "${@/#/$root/}" | while read -r package; do
    case $package in '' | '#'*) continue ;; esac
    dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -q '^installed$' || echo "$package"
  done
}

# install_packages <lists>: what is missing of the lists, which stand in the project's folder
install_packages() {
  local missing as_root=()
  mapfile -t missing < <(packages_missing "$@")
  [ "${#missing[@]}" -eq 0 ] && return
  echo "Installing Debian packages: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
      echo "These packages are missing and need root to be installed: ${missing[*]}" >&2
      echo "As root: apt-get install ${missing[*]}" >&2
      exit 2
    }
    as_root=(sudo)
  fi
  local log
  log=$(mktemp)
  # Quiet unless it fails: what a package says while it is installed helps nobody here.
  if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 2
  fi
  rm -f "$log"
}

# configure <preset> [cmake options]
configure() {
  local preset=$1 log
  shift
  log=$(mktemp)
  if ! (cd "$root" && cmake --preset "$preset" "$@") >"$log" 2>&1; then
    cat "$log" >&2
    exit 2
  fi
  rm -f "$log"
}

# build <preset> [targets]
build() {
  local preset=$1
  shift
  (cd "$root" && cmake --build --preset "$preset" ${1:+--target "$@"})
}
