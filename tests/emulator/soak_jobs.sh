#!/bin/sh
# The soak on several rigs at once and its JSON reports. `--jobs 2` plays two seeds from --seed,
# `--seeds A-B` exactly that range, each seed's report counted in the JSON; `--merge` reads two
# reports back and adds them up; a range that is no range is a usage error.
# Usage: soak_jobs.sh TARVO_EMU
set -e
emu=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/soak_jobs.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*" >&2
    exit 1
}

# Prints the value of the Python expression $2 on the report $1 (as `r`).
field() {
    python3 -c 'import json, sys; r = json.load(open(sys.argv[1])); print(eval(sys.argv[2]))' "$1" "$2"
}

"$emu" soak --seed 5 --jobs 2 --steps 40 --out "$work/failure.textproto" \
    --json "$work/jobs.json" > "$work/jobs.txt" || fail "--jobs 2: $(cat "$work/jobs.txt")"
[ "$(field "$work/jobs.json" 'r["seeds"]')" = "[5, 6]" ] || fail "--jobs 2 played $(cat "$work/jobs.json")"
[ "$(field "$work/jobs.json" 'r["stimuli"]')" = 80 ] || fail "--jobs 2 --steps 40: $(cat "$work/jobs.json")"
[ "$(field "$work/jobs.json" 'r["checks"] > 0 and r["peak"]["descriptors"] > 0')" = True ] ||
    fail "--jobs 2 counted no checks or peaks: $(cat "$work/jobs.json")"

"$emu" soak --seeds 9-11 --jobs 2 --steps 20 --out "$work/failure.textproto" \
    --json "$work/range.json" > "$work/range.txt" || fail "--seeds 9-11: $(cat "$work/range.txt")"
[ "$(field "$work/range.json" 'r["seeds"]')" = "[9, 10, 11]" ] ||
    fail "--seeds 9-11 played $(cat "$work/range.json")"

"$emu" soak --merge "$work/jobs.json" "$work/range.json" > "$work/merged.json" ||
    fail "--merge failed"
[ "$(field "$work/merged.json" 'r["seeds"], r["stimuli"]')" = "([5, 6, 9, 10, 11], 140)" ] ||
    fail "--merge gave $(cat "$work/merged.json")"
traffic=$(($(field "$work/jobs.json" 'sum(r["traffic"].values())') + \
    $(field "$work/range.json" 'sum(r["traffic"].values())')))
[ "$traffic" -gt 0 ] && [ "$(field "$work/merged.json" 'sum(r["traffic"].values())')" = "$traffic" ] ||
    fail "--merge counted the unexpected traffic otherwise: $(cat "$work/merged.json")"

for range in 11-9 9 9-x -9; do
    status=0
    "$emu" soak --seeds "$range" --steps 1 > "$work/bad.txt" 2>&1 || status=$?
    [ "$status" = 2 ] || fail "--seeds $range: exit $status, not a usage error"
    grep -q -- "--seeds" "$work/bad.txt" || fail "--seeds $range: $(cat "$work/bad.txt")"
done
echo "soak jobs: seeds, ranges, merges and refusals as expected"
