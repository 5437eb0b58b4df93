#!/usr/bin/env bash
# Checks n7util srp login end to end: the right password logs in with both sides holding the same
# key, a wrong password and a damaged blob are refused with exit 1 and a message, and a missing
# blob file or option is a usage error.
# Usage: srp_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
failures=0
workdir=$(mktemp -d)
trap 'rm -rf "$workdir"' EXIT

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# login STATUS PASSWORD BLOB_FILE [USER]: logs in and checks the exit status; the output goes to
# $workdir/out and $workdir/err.
login() {
  local status=$1 password=$2 blob=$3 user=${4:-Operator}
  printf '%s\n' "$password" | "$n7util" srp login "$user" --blob "$blob" \
    >"$workdir/out" 2>"$workdir/err"
  local actual=$?
  ((actual == status)) || fail "login as $user with '$password': exit $actual (expected $status)"
}

printf 'Gr\303\274\303\237 Gott 7\n' | "$n7util" passwd blob Operator >"$workdir/blob"

login 0 'Grüß Gott 7' "$workdir/blob"
grep -Eq '^A   [0-9a-f]{256}$' "$workdir/out" || fail "no 128-byte A in: $(cat "$workdir/out")"
grep -Eq '^B   [0-9a-f]{256}$' "$workdir/out" || fail "no 128-byte B"
grep -Eq '^M1  [0-9a-f]{64}$' "$workdir/out" || fail "no 32-byte M1"
grep -Eq '^M2  [0-9a-f]{64}$' "$workdir/out" || fail "no 32-byte M2"
grep -q '^K   the same on both sides$' "$workdir/out" || fail "K not reported the same"
[[ $(grep -c ' ms$' "$workdir/out") -eq 5 ]] || fail "not five timed steps"

login 1 'grüß gott 7' "$workdir/blob"
grep -q '^n7util: login refused' "$workdir/err" || fail "refusal not reported: $(cat "$workdir/err")"
grep -q '^M2  (none)$' "$workdir/out" || fail "an M2 after a refusal"

head -c 20 "$workdir/blob" >"$workdir/cut"
login 1 'Grüß Gott 7' "$workdir/cut"
grep -q '^n7util: .*Unknown hash algorithm' "$workdir/err" || fail "cut blob: $(cat "$workdir/err")"

login 2 'Grüß Gott 7' "$workdir/missing"
"$n7util" srp login Operator </dev/null >/dev/null 2>&1
(($? == 2)) || fail "login without --blob is not a usage error"
"$n7util" srp frob >/dev/null 2>&1
(($? == 2)) || fail "an unknown subcommand is not a usage error"

((failures == 0)) && echo "ok: n7util srp"
exit $((failures == 0 ? 0 : 1))
