# shellcheck shell=bash
# Set-up and checks shared by the command-line tests; a test script sources it with
#   source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"
# It makes $scratch, a temporary directory removed on exit, and counts failed checks in $failures.

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

# fail MESSAGE...: reports a failed check and counts it.
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# run COMMAND ARGS...: runs the command with its standard output in $scratch/out and its standard
# error in $scratch/err, and keeps its exit status in $status.
run() {
  "$@" >"$scratch/out" 2>"$scratch/err"
  status=$?
}

# matches FILE PATTERN: FILE has a line matching the extended regular expression PATTERN; an empty
# PATTERN means FILE must be empty, and "*" that anything goes.
matches() {
  if [[ -z $2 ]]; then [[ ! -s $1 ]]; elif [[ $2 == '*' ]]; then true; else grep -Eq -- "$2" "$1"; fi
}

# check NAME EXPECTED_STATUS RESULT: after `run`, reports NAME as passed if the exit status was
# EXPECTED_STATUS and RESULT, the status of the caller's checks of the output, is 0; a failure
# shows both outputs.
check() {
  if ((status == $2 && $3 == 0)); then
    echo "ok: $1"
  else
    fail "$1: exit status $status (expected $2)"
    sed 's/^/  stdout: /' "$scratch/out"
    sed 's/^/  stderr: /' "$scratch/err"
  fi
}

# expect_match NAME STATUS STDOUT_PATTERN COMMAND ARGS...: runs the command and checks its exit
# status and that its standard output matches the extended regular expression ("" = must be
# empty).
expect_match() {
  local name=$1 expected_status=$2 pattern=$3
  shift 3
  run "$@"
  matches "$scratch/out" "$pattern"
  check "$name" "$expected_status" $?
}

# expect_output NAME STATUS STDOUT STDERR_PATTERN COMMAND ARGS...: runs the command and checks its
# exit status, its exact standard output (trailing newlines aside) and that its standard error
# matches STDERR_PATTERN (see matches).
expect_output() {
  local name=$1 expected_status=$2 expected=$3 err_pattern=$4
  shift 4
  run "$@"
  [[ $(cat "$scratch/out") == "$expected" ]] && matches "$scratch/err" "$err_pattern"
  check "$name" "$expected_status" $?
}

# finish: ends the script, with status 1 if any check failed.
finish() {
  if ((failures > 0)); then
    echo "$failures check(s) failed"
    exit 1
  fi
  echo "all passed"
  exit 0
}
