#!/usr/bin/env bash
# Checks `n7util res string`: strings of a host module and of its language resource modules laid
# out in res/ beside it, the library's own strings, and the exit codes.
# Usage: res_cli_test.sh PATH_TO_N7UTIL HOST_MODULE GERMAN_MODULE LIBRARY
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"
mkdir "$scratch/res"
cp "$2" "$scratch/Host.dll"
cp "$3" "$scratch/res/HostRes.de.dll"
library=$4

# expect NAME STATUS STDOUT STDERR_PATTERN ARGS...: runs n7util with ARGS (see expect_output).
expect() { expect_output "$1" "$2" "$3" "$4" "$n7util" "${@:5}"; }

expect "host string" 0 "host one" "" res string "$scratch/Host.dll" 1
expect "German module" 0 "Hallo" "" res string "$scratch/Host.dll" 1 --lang 0x0407
expect "language in decimal" 0 "Hallo" "" res string "$scratch/Host.dll" 1 --lang 1031
expect "library string" 0 \
  "A Win64 exception '0x%1!X!' has occurred.  Exception Context Record: [Rbp=0x%2!X! Rip=0x%3!X! SegCs=0x%4!X! EFlags=0x%5!X! Rsp=0x%6!X! SegSs=0x%7!X!]" \
  "" res string "$library" 3
expect "missing string" 1 "" \
  "^n7util: \[English Only: Error: Unable to Load String resource '18'\. System Error: ''\]$" \
  res string "$scratch/Host.dll" 18
expect "missing module" 2 "" "cannot load the module" res string "$scratch/None.dll" 1
expect "bad id" 2 "" "string id" res string "$scratch/Host.dll" x
expect "bad language" 2 "" "language must be" res string "$scratch/Host.dll" 1 --lang 0x10000

finish
