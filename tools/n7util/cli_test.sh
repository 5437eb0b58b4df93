#!/usr/bin/env bash
# Checks n7util's command-line contract: help and version output, exit codes, and that every
# line on standard error carries the "n7util: " prefix.
# Usage: cli_test.sh PATH_TO_N7UTIL VERSION
set -uo pipefail

n7util=$1
version=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

# expect STATUS STDOUT_PATTERN STDERR_PATTERN ARGS...: runs n7util with ARGS and checks its exit
# status and that each stream matches its extended regular expression ("" = must be empty).
expect() {
  local status=$1 out_pattern=$2 err_pattern=$3
  shift 3
  "$n7util" "$@" >"$scratch/out" 2>"$scratch/err"
  local actual=$?
  local problem=""
  if ((actual != status)); then
    problem="exit status $actual, expected $status"
  elif ! matches "$scratch/out" "$out_pattern"; then
    problem="standard output does not match '$out_pattern'"
  elif ! matches "$scratch/err" "$err_pattern"; then
    problem="standard error does not match '$err_pattern'"
  elif grep -qv '^n7util: ' "$scratch/err"; then
    problem="a line on standard error lacks the 'n7util: ' prefix"
  fi
  if [[ -n $problem ]]; then
    echo "FAIL: n7util $*: $problem"
    sed 's/^/  stdout: /' "$scratch/out"
    sed 's/^/  stderr: /' "$scratch/err"
    failures=$((failures + 1))
  else
    echo "ok: n7util $*"
  fi
}

matches() {
  if [[ -z $2 ]]; then
    [[ ! -s $1 ]]
  else
    grep -Eq -- "$2" "$1"
  fi
}

expect 0 "^n7util ${version//./\\.}\$" "" --version
expect 0 "^  demo +Runs " "" --help
expect 0 "^Usage: n7util COMMAND" "" -h
expect 0 "^Usage: n7util demo" "" demo --help
expect 0 "^Usage: n7util demo" "" demo -h
# The command table as the completion and the manual page read it: a group and its subcommands.
expect 0 "^reg query set delete enum save restore watch\$" "" --commands
expect 0 "^demo\$" "" --commands
expect 2 "" "^n7util: missing command \\(try 'n7util --help'\\)\$"
expect 2 "" "^n7util: unknown command 'frobnicate'" frobnicate
expect 2 "" "^n7util: unknown option '--frobnicate'" --frobnicate
expect 2 "" "^n7util: unknown option '--fast' \\(try 'n7util demo --help'\\)\$" demo --fast
expect 2 "" "^n7util: unexpected operand 'now'" demo now

if ((failures > 0)); then
  echo "$failures check(s) failed"
  exit 1
fi
