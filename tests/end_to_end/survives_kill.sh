#!/usr/bin/env bash
# Kills a process while it stores keys on the token, some times over: nothing that the token has acknowledged is lost, and it goes
# on working. survives_kill.sh BIN SHARED
set -euo pipefail

bin=$1
work=$(mktemp -d "$(dirname "$2")/killed.XXXXXX")
trap 'rm -rf "$work"' EXIT
cp -r "$2/token" "$work/token"
export QUELTA_TOKEN_DIR=$work/token QUELTA_ACKNOWLEDGED=$work/acknowledged
: >"$QUELTA_ACKNOWLEDGED"

token() {
    wine "$bin/../softtoken/quelta-token.exe" "$@"
}

acknowledged() {
    wc -l <"$QUELTA_ACKNOWLEDGED"
}

for round in 1 2 3 4 5; do
    before=$(acknowledged)
    wine "$bin/quelta_end_to_end.exe" --gtest_also_run_disabled_tests --gtest_brief=1 \
        --gtest_filter=OneProcess.DISABLED_StoresKeysUntilKilled >"$work/output" 2>&1 &
    pid=$!
    # Nobody knows how long the program takes to start, so that the time to kill it counts from its first key of the round.
    for ((i = 0; i < 600 && $(acknowledged) == before; ++i)); do
        sleep 0.1
    done
    sleep "0.$((RANDOM % 4))$((RANDOM % 10))"
    kill -9 "$pid"
    wait "$pid" 2>/dev/null || true
    stored=$(token list --json | grep -c '"type": "aes128"')
    # The last one may have been stored without being acknowledged any more.
    extra=$((stored - $(acknowledged)))
    (($(acknowledged) > before && extra >= 0 && extra <= round)) || {
        echo "round $round: $stored keys stored, $before and then $(acknowledged) acknowledged: $(<"$work/output")"
        exit 1
    }
done
[[ $(token keygen --type p256) =~ ^[0-9A-F]{32} ]]
