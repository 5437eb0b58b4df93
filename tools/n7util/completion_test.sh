#!/usr/bin/env bash
# Checks the generated bash completion against the tool it completes: every group and every
# subcommand `n7util --commands` lists is offered where it belongs, and nothing else.
# Usage: completion_test.sh PATH_TO_N7UTIL COMPLETION_FILE
set -uo pipefail
export LC_ALL=C

n7util=$1
# shellcheck source=/dev/null
source "$2" || exit 1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"

# Its arguments, sorted, on one line separated by spaces.
words() { printf '%s\n' "$@" | sort | paste -sd ' ' -; }

# expect "WORDS..." "EXPECTED": completes the last of WORDS (the command line up to the cursor)
# and compares the sorted offers with EXPECTED (sorted, space-separated).
expect() {
  read -ra COMP_WORDS <<<"$1"
  [[ $1 == *' ' ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _n7util
  local actual
  actual=$(words "${COMPREPLY[@]}")
  [[ $actual == "$2" ]] || fail "'$1': offered '$actual', expected '$2'"
}

table=$("$n7util" --commands) || exit 1
read -ra groups < <(cut -d' ' -f1 <<<"$table" | paste -sd ' ' -)
expect "n7util " "$(words "${groups[@]}" --help --version)"
expect "n7util --v" "--version"
while read -r group subcommands; do
  read -ra subcommands <<<"$subcommands"
  expect "n7util $group " "$(words "${subcommands[@]}" --help)"
done <<<"$table"

# A few fixed expectations, so that a table that lost its entries is caught too.
expect "n7util r" "reg res"
expect "n7util reg w" "watch"
expect "n7util eventlog " "--help add-source query report"
# Past the subcommand, and after an unknown group, bash completes file names.
expect "n7util reg query " ""
expect "n7util frobnicate " ""

finish
