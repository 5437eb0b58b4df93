#!/usr/bin/env bash
# Checks `n7util probe`: temporary directory, writable directories, services (with or without a
# service manager on the machine), the DCOM switch in a scratch registry, and the exit codes.
# Usage: probe_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"
export N7_REGISTRY_DIR=$scratch/registry

# expect NAME STATUS STDOUT_PATTERN ARGS...: runs n7util with ARGS (see expect_match).
expect() { expect_match "$1" "$2" "$3" "$n7util" "${@:4}"; }

mkdir "$scratch/dir"
touch "$scratch/file"
TMPDIR=$scratch/dir expect "temp from TMPDIR" 0 "^$scratch/dir/\$" probe temp
TMPDIR=$scratch/file TMP= TEMP= expect "temp falls back to /tmp" 0 "^/tmp/\$" probe temp
expect "writable directory" 0 "^writable\$" probe writable "$scratch/dir"
expect "a file is no writable directory" 1 "^not writable\$" probe writable "$scratch/file"
expect "unknown service" 1 "^not running\$" probe service n7-no-such-service-4711
expect "missing operand" 2 "" probe writable

expect "dcom without its key" 1 "^disabled\$" probe dcom
"$n7util" reg set 'HKLM\SOFTWARE\Microsoft\Ole' --value Other --data x || fail "reg set"
expect "dcom on" 0 "^enabled\$" probe dcom on
expect "dcom read back" 0 "^enabled\$" probe dcom
expect "dcom off" 1 "^disabled\$" probe dcom off
expect "dcom bad setting" 2 "" probe dcom maybe

finish
