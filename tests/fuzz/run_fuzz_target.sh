#!/bin/sh
# Runs one fuzz target of a build over its seed corpus and prints one line: how many inputs it
# ran, and whether it stayed clean. Exit 0 only when it did: a crash, a leak, an input slower than
# -timeout or any sanitizer report fails it (the input is kept in WORK/artifacts/).
#
#   run_fuzz_target.sh BUILD_DIR TARGET WORK_DIR [LIBFUZZER_OPTION...]
#
# New inputs go to WORK_DIR/corpus (kept between runs); the seeds in tests/fuzz/TARGET (and
# tests/scenarios for the scenario loader) are only read. Targets that touch the device's paths run inside the rig's sandbox, with the messages the
# daemon writes to the emulated modem dropped unread and /data and /mnt limited in size.
set -u

[ $# -ge 3 ] || { echo "usage: $0 BUILD_DIR TARGET WORK_DIR [LIBFUZZER_OPTION...]" >&2; exit 2; }
build=$(cd "$1" && pwd) || exit 2
target=$2
work=$3
shift 3
seeds=$(cd "$(dirname "$0")" && pwd)/$target
fuzzer=$build/fuzz/${target}_fuzzer
[ -x "$fuzzer" ] || { echo "$target: no fuzzer at $fuzzer" >&2; exit 2; }
[ -d "$seeds" ] || { echo "$target: no seed corpus at $seeds" >&2; exit 2; }
mkdir -p "$work/corpus" "$work/artifacts" || exit 2
work=$(cd "$work" && pwd)
log=$work/fuzz.log

set -- "$fuzzer" -timeout=10 -print_final_stats=1 -artifact_prefix="$work/artifacts/" "$@" \
    "$work/corpus" "$seeds"
# Every scenario of the suite seeds the scenario loader too.
[ "$target" = scenario_loader ] && set -- "$@" "$seeds/../../scenarios"
case $target in
    received_message | gnss_coex_config)
        set -- "$build/tarvo-emu" exec --state 0 --discard-uplink --size-limit 65536 \
            --writable "$work" \
            --file /vendor/firmware/uecapconfig/uecap.bin=UE-CAPABILITY-0123456789abcdef -- "$@" ;;
esac

start=$(date +%s)
"$@" >"$log" 2>&1
status=$?
seconds=$(($(date +%s) - start))
runs=$(sed -n 's/.*stat::number_of_executed_units: *\([0-9][0-9]*\).*/\1/p' "$log" | tail -n 1)

if [ $status -eq 0 ] && [ -n "$runs" ]; then
    printf '%-22s %10s inputs in %4d s  clean\n' "$target" "$runs" "$seconds"
    exit 0
fi
printf '%-22s %10s inputs in %4d s  FAILED (status %d), see %s\n' "$target" "${runs:-?}" \
    "$seconds" "$status" "$log"
grep -E 'ERROR: |SUMMARY: |runtime error|Test unit written|sanitizer' "$log" | head -n 20
exit 1
