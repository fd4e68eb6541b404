#!/bin/sh
# Plays a scenario while strace traces the daemon from outside the sandbox, as on a device.
# Usage: take_capture.sh TARVO_EMU SCENARIO OUT [STRACE_OPTION...]
# OUT gets strace's output (standard error's form unless the options say -o); the scenario
# must give strace time to attach in its first step.
set -eu
emu=$1 scenario=$2 out=$3
shift 3
"$emu" run "$scenario" --quiet &
run=$!
pid=""
for _ in $(seq 100); do
    # The daemon under this run, not another rig's.
    pid=$(ps -eo pid=,ppid=,comm= | awk -v run="$run" '
        { parent[$1] = $2; name[$1] = $3 }
        END { for (p in name) if (name[p] == "tarvo") {
                  for (q = parent[p]; q > 1; q = parent[q]) if (q == run) { print p; exit } } }')
    [ -n "$pid" ] && break
    sleep 0.05
done
[ -n "$pid" ] || { echo "no daemon to trace" >&2; kill "$run"; exit 1; }
strace -f -p "$pid" -e trace=read,write,ioctl,openat -P /dev/oem_ipc1 -P /dev/umts_boot0 "$@" \
    2>"$out.stderr" &
tracer=$!
wait "$run"
status=$?
kill "$tracer" 2>/dev/null || true
wait "$tracer" 2>/dev/null || true
# Without -o, the capture is what strace wrote on standard error.
[ -s "$out.stderr" ] && ! [ -e "$out" ] && mv "$out.stderr" "$out"
rm -f "$out.stderr"
exit $status
