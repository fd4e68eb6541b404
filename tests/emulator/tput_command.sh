#!/bin/sh
# `tarvo-emu tput` once, whole: the daemon's full throughput test, the bare reader and writer, the
# table, the JSON figures and the plot, all written to the current directory.
# Usage: tput_command.sh TARVO_EMU
set -e
emu=$1

# expect FILE PATTERN: FILE has a line that matches PATTERN.
expect() {
    grep -q -- "$2" "$1" || { echo "$1 has no line matching '$2'" >&2; exit 1; }
}

"$emu" tput --plot tput_test.svg --json tput_test.json > tput_test.txt 2> tput_progress.txt
# Progress not on a terminal: a line per phase of the daemon's test, then the bare runs.
expect tput_progress.txt '^downlink  *[0-9.]* s   downlink'
expect tput_progress.txt '^uplink end  *[0-9.]* s '
expect tput_progress.txt '^measuring a bare reader'
# Every write of the pump's schedule was counted, and the bare reader measured a rate.
expect tput_test.json 'pump_writes.: 200001,'
expect tput_test.json 'bare_reader_bytes_per_s.: [0-9]'
expect tput_test.svg '<svg'
