#!/bin/sh
# `decode --follow` prints a message as soon as its strace call is complete: the first half of a
# kept capture goes into a pipe that stays open, and the first message's line must come out before
# the rest is written; then the whole capture's messages, the --pcapng and the --scenario once the
# pipe closes. A capture file that grows is followed as `tail -f` does, until Ctrl-C.
# Usage: decode_follow.sh TARVO_EMU SOURCE_DIR WORK_DIR
set -eu
emu=$1 source=$2 work=$3
capture=$source/tests/captures/strace_ttt_xx.txt
rm -rf "$work"
mkdir -p "$work"
first='modem > tarvo  { type: REQUEST message_id: 7 token: 1'

# Waits up to 10 s for FILE to hold TEXT.
wait_for() {
    for _ in $(seq 100); do
        grep -qF "$2" "$1" && return 0
        sleep 0.1
    done
    printf '%s did not show "%s" in time; it holds:\n%s\n' "$3" "$2" "$(cat "$1")" >&2
    return 1
}

mkfifo "$work/pipe"
"$emu" decode --follow --pcapng "$work/follow.pcapng" --scenario "$work/follow.textproto" \
    <"$work/pipe" >"$work/pipe.out" &
decode=$!
exec 3>"$work/pipe"
half=$(($(grep -c '' "$capture") / 2))
head -n "$half" "$capture" >&3
wait_for "$work/pipe.out" "$first" "decode --follow on a pipe"
tail -n +"$((half + 1))" "$capture" >&3
exec 3>&-
wait "$decode"
# Once whole, it shows what decode shows of the whole capture, and writes the same scenario (but
# for the source named on its first line).
"$emu" decode "$capture" --pcapng "$work/whole.pcapng" --scenario "$work/whole.textproto" \
    >"$work/whole.out" 2>/dev/null
diff "$work/whole.out" "$work/pipe.out"
[ "$(tail -n +2 "$work/whole.textproto")" = "$(tail -n +2 "$work/follow.textproto")" ]
[ "$(capinfos -c -M "$work/follow.pcapng" | awk '/Number of packets/ { print $NF }')" = \
  "$(capinfos -c -M "$work/whole.pcapng" | awk '/Number of packets/ { print $NF }')" ]

# A file that grows: read to its end, then waited on for more, until Ctrl-C.
head -n "$half" "$capture" >"$work/growing.strace"
"$emu" decode --follow "$work/growing.strace" >"$work/file.out" &
decode=$!
wait_for "$work/file.out" "$first" "decode --follow on a file"
tail -n +"$((half + 1))" "$capture" >>"$work/growing.strace"
wait_for "$work/file.out" "$(tail -1 "$work/whole.out" | cut -c11-)" "decode --follow on a file"
kill -INT "$decode"
wait "$decode"
