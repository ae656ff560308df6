# What the scripts of tests/guest have in common; run by busybox's shell in a guest.
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# setting NAME VALUE: of scsi_debug, from now on.
setting() { echo "$2" >"/sys/bus/pseudo/drivers/scsi_debug/$1" || fail "scsi_debug takes no $1=$2"; }

# healthy: no errors of scsi_debug's own.
healthy() {
  setting opts 0
  setting every_nth 0
}

# expect STATUS COMMAND [ARGUMENT]...: shows its output, and holds the exit status against the expected one.
expect() {
  expected=$1
  shift
  echo "== $*"
  status=0
  "$@" >output 2>&1 || status=$?
  cat output
  [ "$status" -eq "$expected" ] || fail "exit status $status instead of $expected"
}

# said PATTERN: what was run last has a line like that.
said() { grep -E -q -e "$1" output || fail "no line like '$1'"; }
said_not() { ! grep -E -q -e "$1" output || fail "a line like '$1'"; }

# all_pass PROGRAM FILTER: the tests of a GoogleTest program, of which there must be some.
all_pass() {
  "$1" --gtest_list_tests --gtest_filter="$2" | grep -q '^  ' || fail "$1 has no test like $2"
  expect 0 "$1" --gtest_filter="$2" --gtest_brief=1
}

# The last line of a script.
done_testing() { [ "$failures" -eq 0 ]; }
