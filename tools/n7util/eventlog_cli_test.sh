#!/usr/bin/env bash
# Checks `n7util eventlog`: events reported to the JSON-lines file that N7_EVENTLOG_FILE names,
# source registrations kept in a scratch registry (N7_REGISTRY_DIR), and the exit codes.
# Usage: eventlog_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"
export N7_EVENTLOG_FILE=$scratch/events.jsonl
export N7_REGISTRY_DIR=$scratch/registry

# expect NAME STATUS STDOUT_PATTERN ARGS...: runs n7util with ARGS (see expect_match).
expect() { expect_match "$1" "$2" "$3" "$n7util" "${@:4}"; }

# last_event PATTERN: the last line of the event file, without its time, must equal PATTERN.
last_event() {
  local actual
  actual=$(tail -n 1 "$N7_EVENTLOG_FILE" | sed -E 's/^\{"time":"[0-9T:.-]+Z",/{/')
  [[ $actual == "$1" ]] || fail "event line: $actual"$'\n'"      expected:   $1"
}

expect "report an error event" 0 "^event 0xC0000010 reported to $N7_EVENTLOG_FILE\$" \
  eventlog report "Night Shift" 0xC0000010 'first "one"' second --data 00ff
last_event '{"source":"Night Shift","type":1,"category":0,"id":3221225488,"strings":["first \"one\"","second"],"data":"00ff"}'
expect "report a warning" 0 "reported" eventlog report App 2147483650
last_event '{"source":"App","type":2,"category":0,"id":2147483650,"strings":[],"data":""}'
expect "a remote server is refused" 1 "" eventlog report App 1 --server far.invalid
grep -q "error 1722" "$scratch/err" || fail "remote refusal message"
expect "bad event id" 2 "" eventlog report App 0x1FFFFFFFF
expect "bad data" 2 "" eventlog report App 1 --data 0g
expect "missing id" 2 "" eventlog report App

expect "add a source" 0 "" eventlog add-source "Night Shift" '%N7_HOME%/messages.so'
expect "query it" 0 "^TypesSupported: 7\$" eventlog query "Night Shift"
grep -qx 'EventMessageFile: %N7_HOME%/messages.so' "$scratch/out" || fail "message file read back"
expect "register again with flags" 0 "" eventlog add-source "night shift" /opt/m.so --types 3
expect "the same source, overwritten" 0 "^TypesSupported: 3\$" eventlog query "NIGHT SHIFT"
expect "an unknown source" 1 "" eventlog query Missing
expect "a name too long" 1 "" eventlog add-source "$(printf 'n%.0s' {1..457})" /m.so

finish
