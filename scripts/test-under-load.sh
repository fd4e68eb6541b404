#!/bin/sh
# Runs the suite with every core busy twice over: two busy loops per core (nproc) for as long as
# the suite runs, stopped on every way out. The suite is the README's test command, `make test`,
# unless a command is given (scripts/test-under-load.sh make test JOBS=4). Returns its status.
set -eu
cd "$(dirname "$0")/.."

loops_per_core=2
[ "$#" -gt 0 ] || set -- make test

load_pids=""
stop_load() {
    [ -n "$load_pids" ] || return 0
    kill $load_pids 2>/dev/null || true
    wait $load_pids 2>/dev/null || true
    load_pids=""
}
trap stop_load EXIT
trap 'stop_load; trap - INT; kill -INT $$' INT
trap 'stop_load; exit 143' TERM
trap 'stop_load; exit 129' HUP

loops=$(($(nproc) * loops_per_core))
i=0
while [ "$i" -lt "$loops" ]; do
    yes >/dev/null &
    load_pids="$load_pids $!"
    i=$((i + 1))
done
echo "test-under-load: $loops busy loops on $(nproc) cores while running: $*"

status=0
"$@" || status=$?
stop_load
echo "test-under-load: exit status $status"
exit "$status"
