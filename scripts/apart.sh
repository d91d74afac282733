#!/usr/bin/env bash
# apart.sh COMMAND...: runs COMMAND with its output in a file, and shows the file at the end. The first window under Wine starts a
# desktop process that inherits the output and outlives COMMAND. A pipe would stay open until that process ends.
set -euo pipefail
output=$(mktemp)
trap 'rm -f "$output"' EXIT
status=0
"$@" >"$output" 2>&1 </dev/null || status=$?
cat "$output"
exit "$status"
