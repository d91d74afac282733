#!/usr/bin/env bash
# Kills a process while it stores keys on the token, some times over: nothing that the token has acknowledged is lost, and it goes
# on working. survives_kill.sh BIN SHARED
set -euo pipefail

bin=$1
shared=$2
rounds=5
work=$(mktemp -d "$(dirname "$shared")/killed.XXXXXX")
trap 'rm -rf "$work"' EXIT
cp -r "$shared/token" "$work/token"
export QUELTA_TOKEN_DIR=$work/token QUELTA_ACKNOWLEDGED=$work/acknowledged
: >"$QUELTA_ACKNOWLEDGED"

acknowledged() {
    grep -c stored "$QUELTA_ACKNOWLEDGED" || true
}

stored() {
    wine "$bin/../softtoken/quelta-token.exe" list --json | grep -c '"type": "aes128"'
}

# Nobody knows how long the program takes to start, so that the time to kill it counts from its first key of the round.
kill_one() {
    local before pid
    before=$(acknowledged)
    wine "$bin/quelta_end_to_end.exe" --gtest_also_run_disabled_tests --gtest_brief=1 \
        --gtest_filter=OneProcess.DISABLED_StoresKeysUntilKilled >"$work/output" 2>&1 &
    pid=$!
    for ((i = 0; i < 600; ++i)); do
        [[ $(acknowledged) -eq $before ]] || break
        sleep 0.1
    done
    sleep "0.$((RANDOM % 4))$((RANDOM % 10))"
    kill -9 "$pid"
    wait "$pid" 2>/dev/null || true
    [[ $(acknowledged) -gt $before ]] || {
        cat "$work/output"
        echo "no key was stored in a minute"
        exit 1
    }
}

for ((round = 1; round <= rounds; ++round)); do
    kill_one
    # The last one may have been stored without being acknowledged any more.
    extra=$(($(stored) - $(acknowledged)))
    ((extra >= 0 && extra <= round)) || {
        echo "round $round: $(stored) keys stored, $(acknowledged) acknowledged"
        exit 1
    }
done
wine "$bin/../softtoken/quelta-token.exe" keygen --type p256 >"$work/id"
grep -qE '^[0-9A-F]{32}$' "$work/id"
