#!/bin/sh
# What `tarvo-emu run` leaves to others. The daemon, with --transcript given, holds none of the
# rig's descriptors (the transcript, /dev/null, a pipe, a file of the rig's tree) beyond the three
# standard ones it is given. A run whose reader goes away (`| head -1`, SIGPIPE) ends with 141
# and leaves no temporary tree. Each run's tree goes under a directory of its own as TMPDIR.
# Usage: run_exits.sh TARVO_EMU
set -e
emu=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/run_exits.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*" >&2
    exit 1
}

# Holds the daemon, once it runs, until a file `checked` appears in its tree; then shows a line.
cat > "$work/hold.textproto" <<'EOF'
initial_state: 0
step { expect_log { priority: INFO text: "IO handler started" } }
step { mark: "held" }
step { expect_file { path: "/data/vendor/radio/checked" timeout_ms: 60000 } }
step { note: "checked" }
EOF

# Lets the held run under TMPDIR $1 go on; a run that already ended has no tree left.
release() {
    for tree in "$1"/tarvo-rig.*; do touch "$tree/data/vendor/radio/checked" 2> /dev/null || :; done
}

mkdir "$work/held"
TMPDIR="$work/held" "$emu" run "$work/hold.textproto" --transcript "$work/full.txt" \
    > "$work/held.txt" 2>&1 &
run=$!
pid=
for _ in $(seq 600); do
    pid=$(sed -n 's/.*mark held: pid \([0-9]*\),.*/\1/p' "$work/held.txt")
    [ -n "$pid" ] && break
    kill -0 "$run" 2>/dev/null || break
    sleep 0.1
done
[ -n "$pid" ] || fail "the run showed no mark: $(cat "$work/held.txt")"
for fd in /proc/"$pid"/fd/*; do
    number=${fd##*/}
    target=$(readlink "$fd") || continue
    [ "$number" -gt 2 ] || continue
    # Passed on from whoever started this script, as the rig passes on what it was given.
    [ "$(readlink "/proc/$$/fd/$number" 2>/dev/null)" = "$target" ] && continue
    case "$target" in
    /dev/null | /dev/fuse | pipe:* | "$work"/*)
        fail "the daemon holds $target, a descriptor of the rig's, as $number" ;;
    esac
done
release "$work/held"
wait "$run" || fail "the held run failed: $(cat "$work/held.txt")"

# The reader takes the first line and goes; then the run shows its next line.
mkdir "$work/piped"
(TMPDIR="$work/piped" "$emu" run "$work/hold.textproto" 2> "$work/piped.txt" ||
    echo $? > "$work/status") | {
    head -1 > /dev/null
    exec 0<&-
    release "$work/piped"
}
status=$(cat "$work/status" 2> /dev/null || echo 0)
[ "$status" = 141 ] || fail "the run ended with $status, not 141 (SIGPIPE): $(cat "$work/piped.txt")"
[ -z "$(ls -A "$work/piped")" ] || fail "left behind: $(ls -A "$work/piped")"
