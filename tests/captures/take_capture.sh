#!/bin/sh
# Plays a scenario while strace traces the daemon from outside the sandbox, as on a device.
# Usage: take_capture.sh TARVO_EMU SCENARIO OUT [STRACE_OPTION...]
# OUT gets strace's output (standard error's form unless the options say -o); the scenario
# must give strace time to attach in its first step.
set -eu
. "$(dirname "$0")/daemon_of_run.sh"
emu=$1 scenario=$2 out=$3
shift 3
"$emu" run "$scenario" --quiet &
run=$!
pid=$(daemon_of_run "$run") || { echo "no daemon to trace" >&2; kill "$run"; exit 1; }
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
