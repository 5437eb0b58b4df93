#!/usr/bin/env bash
# Checks the output contract of `n7util xml`: the exact token lines (kinds, tab, escaped values,
# error messages with line, position and URI), the exit codes, and standard input as "-".
# Usage: xml_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"

# expect NAME EXPECTED_STATUS EXPECTED_STDOUT_FILE ARGS...: runs n7util and compares.
expect() {
  run "$n7util" "${@:4}"
  cmp -s "$3" "$scratch/out"
  check "$1" "$2" $?
}

printf '<?xml version="1.0"?>\r\n<a x="1\t2">\001b&amp;\\&#x41;<![CDATA[\r]]></a>' >"$scratch/doc.xml"
printf '%s\n' DocumentStart 'XmldeclStart	xml' 'AttributeStart	version' 'CharData	1.0' \
  AttributeEnd XmldeclEnd 'CharData	\n' 'StartTagStart	a' 'AttributeStart	x' 'CharData	1\t2' \
  AttributeEnd StartTagEnd 'CharData	\x01b' 'EntityRef	amp' 'CharData	\\' 'CharRef	x41' \
  CDATAStart 'CharData	\n' CDATAEnd 'EndTag	a' DocumentEnd >"$scratch/doc.expected"
expect "tokens of a file" 0 "$scratch/doc.expected" xml tokens "$scratch/doc.xml"

printf '<a>\n<b/>&;' >"$scratch/bad.xml"
printf '%s\n' DocumentStart 'StartTagStart	a' StartTagEnd 'CharData	\n' 'StartTagStart	b' \
  'StartTagEndEmpty	b' 'Error	[line 8, pos 5, uri <file:///bad.xml>]: Invalid entity reference name' \
  >"$scratch/bad.expected"
expect "error with first line and URI" 1 "$scratch/bad.expected" \
  xml tokens --first-line 7 --uri file:///bad.xml - <"$scratch/bad.xml"

: >"$scratch/empty"
expect "check of a well-formed document" 0 "$scratch/empty" xml check "$scratch/doc.xml"
expect "check of a malformed document" 1 "$scratch/empty" xml check "$scratch/bad.xml"
expect "unreadable file" 2 "$scratch/empty" xml tokens "$scratch/missing.xml"
expect "bad first line" 2 "$scratch/empty" xml tokens --first-line x "$scratch/doc.xml"
expect "missing file operand" 2 "$scratch/empty" xml tokens

finish
