#!/usr/bin/env bash
# Checks how n7rc reports to the build: a good description gives a source and a depfile naming
# the files it reads; a malformed one fails with status 1 and "FILE:LINE: error: ..." and leaves
# no source behind; a bad command line fails with status 2.
# Usage: n7rc_cli_test.sh PATH_TO_N7RC
set -uo pipefail

n7rc=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"

printf 'x' >"$scratch/blob.bin"
printf 'string 1 "one"\nresource RCDATA 1 file "blob.bin"\n' >"$scratch/good.n7rc"
run "$n7rc" "$scratch/good.n7rc" -o "$scratch/good.cpp" --depfile "$scratch/good.d"
grep -q 'n7_module_resources' "$scratch/good.cpp" &&
  grep -q "^$scratch/good.cpp: $scratch/blob.bin\$" "$scratch/good.d"
check "good description" 0 $?

printf 'string 1 "one"\n\nstring 2 one\n' >"$scratch/bad.n7rc"
run "$n7rc" "$scratch/bad.n7rc" -o "$scratch/bad.cpp"
[[ $(cat "$scratch/err") == "$scratch/bad.n7rc:3: error: expected a quoted text, not 'one'" &&
  ! -e $scratch/bad.cpp ]]
check "malformed description" 1 $?

expect_match "missing output" 2 "" "$n7rc" "$scratch/good.n7rc"
run "$n7rc" --help
matches "$scratch/out" "^Usage: n7rc INPUT -o OUTPUT" && matches "$scratch/err" ""
check "--help" 0 $?
expect_match "--version" 0 "^n7rc [0-9]+\.[0-9]+\.[0-9]+\$" "$n7rc" --version

finish
