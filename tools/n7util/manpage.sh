#!/usr/bin/env bash
# Writes n7util's manual page, gzipped, from the tool's own help texts: help2man turns
# `n7util --help` and `--version` into the page, and a COMMANDS section holds `n7util GROUP --help`
# for every group the tool's command table lists (`n7util --commands`).
#
# Usage: manpage.sh N7UTIL HELP2MAN OUTPUT.gz
set -euo pipefail

n7util=$1
help2man=$2
output=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# roff: a backslash is \e, a minus is \-, and a line must not start with a control character.
roff() { sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^[.']/\\\\\\&&/"; }

{
  echo "[COMMANDS]"
  while read -r group _; do
    echo ".SS \"n7util $group\""
    echo ".nf"
    "$n7util" "$group" --help | roff
    echo ".fi"
  done < <("$n7util" --commands)

  cat <<'ROFF'
[ENVIRONMENT]
.TP
.B N7_REGISTRY_DIR
Directory of the registry store (created on first use).
Default: \fI/var/lib/n7utility/registry\fR for root, else
\fI$XDG_STATE_HOME/n7utility/registry\fR (\fI~/.local/state/n7utility/registry\fR).
.TP
.B N7_EVENTLOG_FILE
File that the event log appends its events to, one JSON object per line,
in place of the system log.
.TP
.B N7_TRACE
Trace levels by topic: \fITopic\fR=\fIlevel\fR,... (\fB*\fR sets every topic not named).
.TP
.B N7_TRACE_FILE
File that trace lines are appended to, in place of standard error.
[FILES]
.TP
.I /var/lib/n7utility/registry
The registry store of programs that run as root.
.TP
.I /usr/share/n7utility/demo\-messages
The message file of the event source that \fBn7util demo\fR registers.
ROFF
} >"$work/include"

# The help texts are ASCII; the C locale keeps help2man's own output the same everywhere.
LC_ALL=C "$help2man" --no-info --section=1 --source=libn7utility \
  --name="command-line tool over the libn7utility library" \
  --include="$work/include" --output="$work/n7util.1" "$n7util"
gzip -9n -c "$work/n7util.1" >"$output"
