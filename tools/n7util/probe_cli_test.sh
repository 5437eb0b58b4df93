#!/usr/bin/env bash
# Checks `n7util probe`: temporary directory, writable directories, services (with or without a
# service manager on the machine), the DCOM switch in a scratch registry, and the exit codes.
# Usage: probe_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export N7_REGISTRY_DIR=$scratch/registry
failures=0

# expect NAME STATUS STDOUT_PATTERN ARGS...: runs n7util and checks its exit status and that its
# standard output matches the extended regular expression ("" = must be empty).
output_matches() {
  if [[ -z $1 ]]; then [[ ! -s $scratch/out ]]; else grep -Eq -- "$1" "$scratch/out"; fi
}

expect() {
  local name=$1 status=$2 pattern=$3
  shift 3
  "$n7util" "$@" >"$scratch/out" 2>"$scratch/err"
  local actual=$?
  if ((actual != status)) || ! output_matches "$pattern"; then
    echo "FAIL: $name: exit status $actual (expected $status)"
    sed 's/^/  stdout: /' "$scratch/out"
    sed 's/^/  stderr: /' "$scratch/err"
    failures=$((failures + 1))
  else
    echo "ok: $name"
  fi
}

mkdir "$scratch/dir"
touch "$scratch/file"
TMPDIR=$scratch/dir expect "temp from TMPDIR" 0 "^$scratch/dir/\$" probe temp
TMPDIR=$scratch/file TMP= TEMP= expect "temp falls back to /tmp" 0 "^/tmp/\$" probe temp
expect "writable directory" 0 "^writable\$" probe writable "$scratch/dir"
expect "a file is no writable directory" 1 "^not writable\$" probe writable "$scratch/file"
expect "missing directory" 1 "^not writable\$" probe writable "$scratch/missing"
[[ -z $(ls -A "$scratch/dir") ]] || { echo "FAIL: probe file left behind"; failures=$((failures + 1)); }
expect "unknown service" 1 "^not running\$" probe service n7-no-such-service-4711
expect "missing operand" 2 "" probe writable

expect "dcom without its key" 1 "^disabled\$" probe dcom
expect "dcom cannot be switched without its key" 1 "" probe dcom on
"$n7util" reg set 'HKLM\SOFTWARE\Microsoft\Ole' --value Other --data x || failures=$((failures + 1))
expect "dcom on" 0 "^enabled\$" probe dcom on
expect "dcom read back" 0 "^enabled\$" probe dcom
expect "dcom off" 1 "^disabled\$" probe dcom off
expect "dcom bad setting" 2 "" probe dcom maybe

if ((failures > 0)); then
  echo "$failures check(s) failed"
  exit 1
fi
