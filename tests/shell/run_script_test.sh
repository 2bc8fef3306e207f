#!/usr/bin/env bash
# run_script_test.sh TIFFGATE MAKE_TEST_FILES CASE
#
# Runs one script test: CASE.tg is the script, CASE.out and CASE.err the
# standard output and error expected of it (an absent CASE.out is not
# compared). Directives in the script's comments:
#   # run: COMMAND     how to run it (default: $TIFFGATE script.tg); the
#                      exit status of COMMAND is what is checked
#   # status: N        the exit status expected (default 0)
# It runs in a fresh directory holding the files make_test_files writes and
# script.tg; @NAME@ in the script and the expectations stands for the
# values make_test_files recorded.
set -u
TIFFGATE=$1
make_test_files=$2
case=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$make_test_files" "$work" || exit 1

substitute() {
  local text name value
  text=$(cat "$1"; printf x)  # the x keeps trailing newlines
  text=${text%x}
  while IFS='=' read -r name value; do text=${text//@$name@/$value}; done < "$work/values"
  printf '%s' "$text"
}
substitute "$case.tg" > "$work/script.tg"
: > "$work/expected.err"
[ -f "$case.err" ] && substitute "$case.err" > "$work/expected.err"
[ -f "$case.out" ] && substitute "$case.out" > "$work/expected.out"
run=$(sed -n 's/^# run: //p' "$work/script.tg")
expected_status=$(sed -n 's/^# status: //p' "$work/script.tg")

cd "$work"
export TIFFGATE
eval "${run:-\$TIFFGATE script.tg}" < /dev/null > actual.out 2> actual.err
status=$?

failed=0
if [ -f expected.out ]; then diff -u expected.out actual.out || failed=1; fi
diff -u expected.err actual.err || failed=1
if [ "$status" != "${expected_status:-0}" ]; then
  echo "exit status $status, expected ${expected_status:-0}"
  failed=1
fi
exit $failed
