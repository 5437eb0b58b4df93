#!/usr/bin/env bash
# Checks the output contract of `n7util xml`: the exact token lines (kinds, tab, escaped values,
# error messages with line, position and URI), the exit codes, and standard input as "-".
# Usage: xml_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

# check NAME EXPECTED_STATUS EXPECTED_STDOUT_FILE ARGS...: runs n7util and compares.
check() {
  local name=$1 status=$2 expected=$3
  shift 3
  "$n7util" "$@" >"$scratch/out" 2>"$scratch/err"
  local actual=$?
  if ((actual != status)) || ! cmp -s "$expected" "$scratch/out"; then
    echo "FAIL: $name: exit status $actual (expected $status)"
    diff "$expected" "$scratch/out" | sed 's/^/  /'
    sed 's/^/  stderr: /' "$scratch/err"
    failures=$((failures + 1))
  else
    echo "ok: $name"
  fi
}

printf '<?xml version="1.0"?>\r\n<a x="1\t2">\001b&amp;\\&#x41;<![CDATA[\r]]></a>' >"$scratch/doc.xml"
printf '%s\n' DocumentStart 'XmldeclStart	xml' 'AttributeStart	version' 'CharData	1.0' \
  AttributeEnd XmldeclEnd 'CharData	\n' 'StartTagStart	a' 'AttributeStart	x' 'CharData	1\t2' \
  AttributeEnd StartTagEnd 'CharData	\x01b' 'EntityRef	amp' 'CharData	\\' 'CharRef	x41' \
  CDATAStart 'CharData	\n' CDATAEnd 'EndTag	a' DocumentEnd >"$scratch/doc.expected"
check "tokens of a file" 0 "$scratch/doc.expected" xml tokens "$scratch/doc.xml"

printf '<a>\n<b/>&;' >"$scratch/bad.xml"
printf '%s\n' DocumentStart 'StartTagStart	a' StartTagEnd 'CharData	\n' 'StartTagStart	b' \
  'StartTagEndEmpty	b' 'Error	[line 8, pos 5, uri <file:///bad.xml>]: Invalid entity reference name' \
  >"$scratch/bad.expected"
check "error with first line and URI" 1 "$scratch/bad.expected" \
  xml tokens --first-line 7 --uri file:///bad.xml - <"$scratch/bad.xml"

: >"$scratch/empty"
check "check of a well-formed document" 0 "$scratch/empty" xml check "$scratch/doc.xml"
check "check of a malformed document" 1 "$scratch/empty" xml check "$scratch/bad.xml"
check "unreadable file" 2 "$scratch/empty" xml tokens "$scratch/missing.xml"
check "bad first line" 2 "$scratch/empty" xml tokens --first-line x "$scratch/doc.xml"
check "missing file operand" 2 "$scratch/empty" xml tokens

if ((failures > 0)); then
  echo "$failures check(s) failed"
  exit 1
fi
