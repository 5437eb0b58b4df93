#!/usr/bin/env bash
# Checks n7util date end to end: the fields `show` and `julian` print, the shifts of `add` with
# month clamping, formats in and out, and that bad input is a clear error with exit 1 or 2.
# Usage: date_cli_test.sh PATH_TO_N7UTIL
set -uo pipefail

n7util=$1
# shellcheck source=SCRIPTDIR/../cli_test_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../cli_test_lib.sh"

# expect STATUS EXPECTED_STDOUT STDERR_PATTERN ARGS...: runs `n7util date ARGS` and checks its
# exit status, its exact standard output and that standard error is an "n7util: " line matching
# the extended regular expression ("" = must be empty).
expect() {
  expect_output "n7util date ${*:4}" "$1" "$2" "${3:+^n7util: .*$3}" "$n7util" date "${@:4}"
}

# fields NUMBER MONTH DAY YEAR WEEKDAY TEXT VALID: the lines of `show` and `julian`.
fields() {
  printf 'day number: %s\nmonth: %s\nday: %s\nyear: %s\nday of week: %s\ntext: %s\nvalid: %s' "$@"
}

y2k=$(fields 2451544 1 1 2000 Saturday 01/01/2000 yes)
expect 0 "$y2k" "" show 01/01/2000
expect 0 "$y2k" "" julian 2451544
expect 0 "$(fields 2451544 1 1 2000 Saturday 2000-01-01 yes)" "" julian 2451544 --out yyyy-mm-dd
expect 0 "$(fields 2299160 10 15 1582 Friday 15.10.82 yes)" "" show 1582-10-15 \
  --in YYYY-MM-DD --out DD.MM.YY

# Shifts; months keep the day within the new month, years do not.
expect 0 $'date: 02/29/2016\nday number: 2457447' "" add 01/31/2016 --months 1
expect 0 $'date: 15.12.15\nday number: 2457371' "" add 01/15/2017 --months -13 --out DD.MM.YY
expect 1 $'date: Invalid Date\nday number: 2457813' "the result is not a valid date" \
  add 02/29/2016 --years 1
expect 1 $'date: 01/01/2147483647\nday number: 2147483647' "has no day number of its own" \
  add 01/01/2000 --years 2147483647

# A day the calendar reform dropped: shown, but it is another day's number.
expect 1 "$(fields 2299165 10 10 1582 Wednesday 10/10/1582 yes)" \
  "day number 2299165 is month 10, day 20, year 1582" show 10/10/1582

# Texts that do not make a valid date: the fields as far as they were read, and exit 1.
expect 1 "$(fields 1721116 3 0 0 Sunday 'Invalid Date' no)" "'3/15' .* is not a valid date" \
  show 3/15
expect 1 "" "is not a valid date" add 02/30/2017 --days 1

# Usage errors: exit 2.
expect 2 "" "missing operand" show
expect 2 "" "must name the day" show 01/01/2000 --in MM/YYYY
expect 2 "" "missing --days" add 01/01/2000
expect 2 "" "only one of" add 01/01/2000 --days 1 --months 1
expect 2 "" "--weeks must be a whole number" add 01/01/2000 --weeks 1.5
expect 2 "" "day number must be a whole number" julian 2147483648
expect 2 "" "day number must be a whole number .*not '-1'" julian -1
expect 2 "" "argument 3 is not valid UTF-8" add 01/01/2000 --in $'yyyy\xc3'
expect 2 "" "unknown subcommand" frob

finish
