# Runs a test file on one drive and prints one line: commands, rates, findings, exit status. A script of any shell, for
# scripts/mixed-runs.sh and for a guest, which has busybox's.
#
#   mixed-one.sh NAME CORVANE FILE ADDRESS TIME FOLDER    FOLDER is made, for what the run leaves
name=$1
mkdir -p "$6"
status=0
"$2" run "$3" --drive "$4" --time "$5" --output "$6/out" >"$6/log" 2>&1 || status=$?
# figure WORD PATTERN LOG
figure() {
  value=$(sed -n "s/^  $1 $2/\\1/p" "$3")
  echo "${value:--}"
}
printf '%-10s %14s %14s %14s %9s %6s\n' "$name" "$(figure commands ' *\([0-9,]*\).*' "$6/log")" \
  "$(figure written '.*, \(.*\)' "$6/log")" "$(figure compared '.*, \(.*\)' "$6/log")" \
  "$(figure findings ' *\(.*\)' "$6/log")" "$status"
[ "$status" -eq 0 ] || { tail -n 60 "$6/log" >&2; exit 1; }
