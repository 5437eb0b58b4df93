#!/usr/bin/env bash
# Checks `n7util reg` on a store of its own: values of each type written and read back, key
# listing and deletion, save and restore, a change reported by watch, and the exit codes.
# Usage: reg_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"
export N7_REGISTRY_DIR=$scratch/store

# expect NAME STATUS EXPECTED_STDOUT ARGS...: runs n7util and compares status and output.
expect() { expect_output "$1" "$2" "$3" '*' "$n7util" "${@:4}"; }

key='HKCU\Software\N7Test'
expect "set text" 0 "" reg set "$key" --value Name --data 'héllo wörld'
expect "set number" 0 "" reg set "$key" --value Count --type REG_DWORD --data 0x2A
expect "set quad" 0 "" reg set "$key" --value Big --type REG_QWORD --data 18446744073709551615
expect "set binary" 0 "" reg set "$key" --value Raw --type REG_BINARY --data 00ff10
expect "set strings" 0 "" reg set "$key" --value List --type REG_MULTI_SZ --data 'a\0bc'
expect "set default" 0 "" reg set "$key" --value= --data dflt
expect "query one, any case" 0 "NAME	REG_SZ	héllo wörld" reg query 'hkcu\SOFTWARE\n7test' --value NAME
expect "query all" 0 "$(printf '%s\n' '(Default)	REG_SZ	dflt' 'Big	REG_QWORD	18446744073709551615' \
  'Count	REG_DWORD	42' 'List	REG_MULTI_SZ	a\0bc' 'Name	REG_SZ	héllo wörld' 'Raw	REG_BINARY	00ff10')" \
  reg query "$key"

expect "missing value" 1 "" reg query "$key" --value Nope
grep -q "error 2" "$scratch/err" || fail "missing value names error 2"
expect "bad root" 2 "" reg query 'HKXX\Software'
expect "bad type" 2 "" reg set "$key" --value X --type REG_FLOAT --data 1
expect "bad number" 2 "" reg set "$key" --value X --type REG_DWORD --data 4294967296

expect "subkeys" 0 "" reg set "$key\\Beta"
expect "subkey" 0 "" reg set "$key\\alpha"
expect "enum" 0 "$(printf '%s\n' alpha Beta)" reg enum "$key"
expect "delete subkey" 0 "" reg delete "$key\\BETA"
expect "delete value" 0 "" reg delete "$key" --value Raw
expect "enum after delete" 0 "alpha" reg enum "$key"

expect "save" 0 "" reg save "$key" "$scratch/saved"
expect "restore elsewhere" 0 "" reg restore 'HKLM\Software\Copy' "$scratch/saved"
expect "restored value" 0 "Count	REG_DWORD	42" reg query 'HKLM\Software\Copy' --value Count
expect "restored subkey" 0 "alpha" reg enum 'HKLM\Software\Copy'
head -c 40 "$scratch/saved" >"$scratch/cut"
expect "restore a cut file to a new key" 1 "" reg restore 'HKLM\Software\Fresh' "$scratch/cut"
expect "no key left by a failed restore" 1 "" reg enum 'HKLM\Software\Fresh'

# watch reports on standard error once it watches; the change is made only then.
mkfifo "$scratch/ready"
"$n7util" reg watch "$key" >"$scratch/watched" 2>"$scratch/ready" &
watcher=$!
exec 3<"$scratch/ready"
read -r -u 3 line
"$n7util" reg set "$key" --value Count --type REG_DWORD --data 7
wait "$watcher"
status=$?
exec 3<&-
if ((status != 0)) || [[ "$(cat "$scratch/watched")" != "set	Count	REG_DWORD	7" ]]; then
  fail "watch: status $status, output: $(cat "$scratch/watched")"
else
  echo "ok: watch"
fi

mode=$(stat -c %a "$N7_REGISTRY_DIR")
[[ $mode == 700 ]] || fail "store directory mode $mode"

finish
