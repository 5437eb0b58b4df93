#!/usr/bin/env bash
# Checks n7util passwd end to end: a value made by `make` is accepted by `check` as typed and as
# keypad digits, a wrong password is refused with exit 1, a blob made by `blob` gives its public
# properties, and bad input is a clear error.
# Usage: passwd_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"

# expect STATUS EXPECTED_STDOUT COMMAND...: runs COMMAND and checks its exit status and output.
expect() { expect_output "$*" "$1" "$2" '*' "${@:3}"; }

stored=$(printf 'Night-Shift 7\n' | "$n7util" passwd make Operator)
[[ ${#stored} -eq 44 ]] || fail "passwd make gave '$stored'"
expect 0 match sh -c "printf 'Night-Shift 7\n' | '$n7util' passwd check OPERATOR '$stored'"
expect 0 match sh -c "printf '64448744387' | '$n7util' passwd check operator '$stored' --keypad"
expect 1 "no match" sh -c "printf 'night-shift 7\n' | '$n7util' passwd check Operator '$stored'"
expect 1 "" sh -c "printf '' | '$n7util' passwd make Operator"
expect 1 "" sh -c "printf '\377\n' | '$n7util' passwd make Operator"
expect 0 "22*1" "$n7util" passwd keymap Ab-1 --mark-others
expect 2 "" "$n7util" passwd keymap

printf 'Night-Shift 7\n' | "$n7util" passwd blob Operator >"$scratch/blob"
salt=$("$n7util" passwd props "$scratch/blob" | tr -d '\r' | sed -n 's|^  <salt>\(.*\)</salt>$|\1|p')
[[ ${#salt} -eq 44 ]] || fail "passwd props of a new blob gave salt '$salt'"
expect 0 "<passwd-props>
  <salt>$salt</salt>
  <alg>PBKDF2-SHA256</alg>
  <iterations>1024</iterations>
</passwd-props>" sh -c "'$n7util' passwd props - <'$scratch/blob' | tr -d '\r'"
expect 1 "" sh -c "printf '\n' | '$n7util' passwd blob Operator"
printf 'legacy' >"$scratch/unknown"
expect 1 "" "$n7util" passwd props "$scratch/unknown"
expect 2 "" "$n7util" passwd props "$scratch/missing"
expect 2 "" "$n7util" passwd blob

finish
