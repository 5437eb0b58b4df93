#!/usr/bin/env bash
# Checks n7util srp login end to end: the right password logs in with both sides holding the same
# key, a wrong password and a damaged blob are refused with exit 1 and a message, and a missing
# blob file or option is a usage error.
# Usage: srp_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"

# login STATUS PASSWORD BLOB_FILE [USER]: logs in and checks the exit status; the output goes to
# $scratch/out and $scratch/err.
login() {
  local expected_status=$1 password=$2 blob=$3 user=${4:-Operator}
  run "$n7util" srp login "$user" --blob "$blob" <<<"$password"
  ((status == expected_status)) ||
    fail "login as $user with '$password': exit $status (expected $expected_status)"
}

printf 'Gr\303\274\303\237 Gott 7\n' | "$n7util" passwd blob Operator >"$scratch/blob"

login 0 'Grüß Gott 7' "$scratch/blob"
grep -Eq '^A   [0-9a-f]{256}$' "$scratch/out" || fail "no 128-byte A in: $(cat "$scratch/out")"
grep -Eq '^B   [0-9a-f]{256}$' "$scratch/out" || fail "no 128-byte B"
grep -Eq '^M1  [0-9a-f]{64}$' "$scratch/out" || fail "no 32-byte M1"
grep -Eq '^M2  [0-9a-f]{64}$' "$scratch/out" || fail "no 32-byte M2"
grep -q '^K   the same on both sides$' "$scratch/out" || fail "K not reported the same"
[[ $(grep -c ' ms$' "$scratch/out") -eq 5 ]] || fail "not five timed steps"

login 1 'grüß gott 7' "$scratch/blob"
grep -q '^n7util: login refused' "$scratch/err" || fail "refusal not reported: $(cat "$scratch/err")"
grep -q '^M2  (none)$' "$scratch/out" || fail "an M2 after a refusal"

head -c 20 "$scratch/blob" >"$scratch/cut"
login 1 'Grüß Gott 7' "$scratch/cut"
grep -q '^n7util: .*Ill-formatted (empty) password blob' "$scratch/err" || fail "cut blob: $(cat "$scratch/err")"

login 2 'Grüß Gott 7' "$scratch/missing"
"$n7util" srp login Operator </dev/null >/dev/null 2>&1
(($? == 2)) || fail "login without --blob is not a usage error"

finish
