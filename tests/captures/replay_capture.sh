#!/bin/sh
# Captures the daemon in the rig with the device's strace line, decodes the capture into a
# scenario and plays that against the same build: it must pass.
# Usage: replay_capture.sh TARVO_EMU WORK_DIR
set -eu
emu=$1 work=$2
dir=$(dirname "$0")
mkdir -p "$work"
rm -f "$work/session.strace"
"$dir/take_capture.sh" "$emu" "$dir/session.textproto" "$work/session.strace" \
    -ttt -y -xx -s 70000 -o "$work/session.strace"
"$emu" decode "$work/session.strace" --scenario "$work/session.textproto" >/dev/null
grep -q "^step { expect " "$work/session.textproto"
"$emu" run "$work/session.textproto" --quiet
