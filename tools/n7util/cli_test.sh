#!/usr/bin/env bash
# Checks n7util's command-line contract: help and version output, exit codes, and that every
# line on standard error carries the "n7util: " prefix.
# Usage: cli_test.sh PATH_TO_N7UTIL VERSION
set -uo pipefail

n7util=$1
version=$2
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"

# expect STATUS STDOUT_PATTERN STDERR_PATTERN ARGS...: runs n7util with ARGS and checks its exit
# status, that each stream matches its pattern (see matches), and that every line on standard
# error has the prefix.
expect() {
  run "$n7util" "${@:4}"
  matches "$scratch/out" "$2" && matches "$scratch/err" "$3" && ! grep -qv '^n7util: ' "$scratch/err"
  check "n7util ${*:4}" "$1" $?
}

expect 0 "^n7util ${version//./\\.}\$" "" --version
expect 0 "^  demo +Runs " "" --help
expect 0 "^Usage: n7util COMMAND" "" -h
expect 0 "^Usage: n7util demo" "" demo --help
# The command table as the completion and the manual page read it: a group and its subcommands.
expect 0 "^reg query set delete enum save restore watch\$" "" --commands
expect 0 "^demo\$" "" --commands
expect 2 "" "^n7util: missing command \\(try 'n7util --help'\\)\$"
expect 2 "" "^n7util: unknown command 'frobnicate'" frobnicate
expect 2 "" "^n7util: unknown option '--frobnicate'" --frobnicate
expect 2 "" "^n7util: unknown option '--fast' \\(try 'n7util demo --help'\\)\$" demo --fast
expect 2 "" "^n7util: unexpected operand 'now'" demo now

finish
