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
if "$n7rc" "$scratch/good.n7rc" -o "$scratch/good.cpp" --depfile "$scratch/good.d" 2>"$scratch/err" &&
  grep -q 'n7_module_resources' "$scratch/good.cpp" &&
  grep -q "^$scratch/good.cpp: $scratch/blob.bin\$" "$scratch/good.d"; then
  echo "ok: good description"
else
  fail "good description"
  sed 's/^/  /' "$scratch/err" "$scratch/good.d"
fi

printf 'string 1 "one"\n\nstring 2 one\n' >"$scratch/bad.n7rc"
"$n7rc" "$scratch/bad.n7rc" -o "$scratch/bad.cpp" 2>"$scratch/err"
status=$?
expected="$scratch/bad.n7rc:3: error: expected a quoted text, not 'one'"
if ((status == 1)) && [[ $(cat "$scratch/err") == "$expected" ]] && [[ ! -e $scratch/bad.cpp ]]; then
  echo "ok: malformed description"
else
  fail "malformed description: status $status"
  sed 's/^/  /' "$scratch/err"
fi

"$n7rc" "$scratch/good.n7rc" 2>/dev/null
status=$?
if ((status == 2)); then echo "ok: missing output"; else fail "missing output: status $status"; fi

run "$n7rc" --help
if ((status == 0)) && matches "$scratch/out" "^Usage: n7rc INPUT -o OUTPUT" && matches "$scratch/err" ""; then
  echo "ok: --help"
else
  fail "--help: status $status"
fi
run "$n7rc" --version
if ((status == 0)) && matches "$scratch/out" "^n7rc [0-9]+\.[0-9]+\.[0-9]+\$"; then
  echo "ok: --version"
else
  fail "--version: status $status"
fi

finish
