#!/bin/sh
# `tarvo-emu console` scripted through a pipe, recording the session, and the recording played
# back by `tarvo-emu run`; then a scenario's run recorded and played back too. The recordings and
# the console's output are written to the current directory.
# Usage: console_pipe.sh TARVO_EMU TESTS_DIR
set -e
emu=$1
tests=$2

"$emu" console --record console_pipe.textproto < "$tests/console/piped_session.txt" \
    > console_pipe.txt
# The transcript shows the request that the script had the daemon send.
grep -q 'tarvo > modem  { type: REQUEST message_id: 5' console_pipe.txt || {
    echo "console_pipe.txt does not show the modem statistics request" >&2
    exit 1
}
# The session ends with its summary.
grep -qE '^[0-9]+ steps played, [0-9]+ passed, 0 failed, [0-9.]+ s$' console_pipe.txt || {
    echo "console_pipe.txt does not end with the summary" >&2
    exit 1
}
# Quiet, a passing run prints its summary only.
"$emu" run console_pipe.textproto --quiet > quiet_run.txt
grep -qxE 'PASSED console_pipe.textproto: [0-9]+ steps played, [0-9]+ passed, 0 failed, [0-9.]+ s' \
    quiet_run.txt && [ "$(wc -l < quiet_run.txt)" -eq 1 ] || {
    echo "a quiet run printed more or less than its summary:" >&2
    cat quiet_run.txt >&2
    exit 1
}

"$emu" run "$tests/scenarios/demo.textproto" --quiet --record run_record.textproto
"$emu" run run_record.textproto --quiet
