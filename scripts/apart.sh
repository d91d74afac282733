#!/usr/bin/env bash
# apart.sh COMMAND...: runs it with its output in a file, which is shown at the end. The first window that is opened under Wine starts
# a process for the desktop; it inherits the output and outlives the command, and whoever reads a pipe to its end waits for it.
set -euo pipefail
output=$(mktemp)
trap 'rm -f "$output"' EXIT
status=0
"$@" >"$output" 2>&1 </dev/null || status=$?
cat "$output"
exit "$status"
