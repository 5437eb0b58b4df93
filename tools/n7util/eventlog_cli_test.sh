#!/usr/bin/env bash
# Checks `n7util eventlog`: events reported to the JSON-lines file that N7_EVENTLOG_FILE names,
# source registrations kept in a scratch registry (N7_REGISTRY_DIR), and the exit codes.
# Usage: eventlog_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export N7_EVENTLOG_FILE=$scratch/events.jsonl
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

# last_event PATTERN: the last line of the event file, without its time, must equal PATTERN.
last_event() {
  local actual
  actual=$(tail -n 1 "$N7_EVENTLOG_FILE" | sed -E 's/^\{"time":"[0-9T:.-]+Z",/{/')
  if [[ $actual != "$1" ]]; then
    echo "FAIL: event line: $actual"
    echo "      expected:   $1"
    failures=$((failures + 1))
  fi
}

expect "report an error event" 0 "^event 0xC0000010 reported to $N7_EVENTLOG_FILE\$" \
  eventlog report "Night Shift" 0xC0000010 'first "one"' second --data 00ff
last_event '{"source":"Night Shift","type":1,"category":0,"id":3221225488,"strings":["first \"one\"","second"],"data":"00ff"}'
expect "report a warning" 0 "reported" eventlog report App 2147483650
last_event '{"source":"App","type":2,"category":0,"id":2147483650,"strings":[],"data":""}'
expect "a remote server is refused" 1 "" eventlog report App 1 --server far.invalid
grep -q "error 1722" "$scratch/err" || { echo "FAIL: remote refusal message"; failures=$((failures + 1)); }
expect "bad event id" 2 "" eventlog report App 0x1FFFFFFFF
expect "bad data" 2 "" eventlog report App 1 --data 0g
expect "missing id" 2 "" eventlog report App

expect "add a source" 0 "" eventlog add-source "Night Shift" '%N7_HOME%/messages.so'
expect "query it" 0 "^TypesSupported: 7\$" eventlog query "Night Shift"
grep -qx 'EventMessageFile: %N7_HOME%/messages.so' "$scratch/out" ||
  { echo "FAIL: message file read back"; failures=$((failures + 1)); }
expect "register again with flags" 0 "" eventlog add-source "night shift" /opt/m.so --types 3
expect "the same source, overwritten" 0 "^TypesSupported: 3\$" eventlog query "NIGHT SHIFT"
expect "an unknown source" 1 "" eventlog query Missing
expect "a name too long" 1 "" eventlog add-source "$(printf 'n%.0s' {1..457})" /m.so

if ((failures > 0)); then
  echo "$failures check(s) failed"
  exit 1
fi
