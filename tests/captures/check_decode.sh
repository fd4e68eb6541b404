#!/bin/sh
# Decodes each kept capture of tests/captures/session.textproto, one per form strace writes, and
# compares it with what it must read as; then the captures that must be refused.
# Usage: check_decode.sh TARVO_EMU
set -u
emu=$1
dir=$(dirname "$0")
failed=0
check() {
    capture=$1
    shift
    if ! "$emu" decode "$dir/$capture" --full "$@" | diff -u "$dir/expected/$capture" -; then
        echo "FAILED: $capture decodes differently" >&2
        failed=1
    fi
}
check strace_ttt_xx.txt           # -ttt -xx -o: "PID TIME" and every byte in hex
check strace_tt_x_stderr.txt      # -tt -x on standard error: "[pid N] TIME"
check strace_t_octal.txt          # -t, octal and C escapes, split write
check strace_no_y.txt --fd 4      # no -y, no times: the descriptor given
check strace_before_5.0.txt       # "<... read resumed> " of strace before 5.0
check strace_partial_write.txt    # a write of 7 bytes, then the rest
check strace_x_verbose.txt        # -X verbose: "0x6f27 /* _IOC(...) */"
check strace_hex_dump.txt         # -e read=all -e write=all, -s 32: the bytes in the dump rows
# -ff -o PREFIX (with -e read=all -e write=all): a file per thread, merged by time.
if ! "$emu" decode "$dir"/strace_ff/tarvo.strace.* --full | diff -u "$dir/expected/strace_ff.txt" -; then
    echo "FAILED: strace_ff/ decodes differently" >&2
    failed=1
fi

# The capture on standard input, with `filter` applied.
refused() {
    capture=$1 filter=$2 pattern=$3
    if $filter "$dir/$capture" | "$emu" decode >/dev/null 2>"$dir/refused.err" ||
        ! grep -q "$pattern" "$dir/refused.err"; then
        echo "FAILED: $capture must be refused with \"$pattern\":" >&2
        cat "$dir/refused.err" >&2
        failed=1
    fi
    rm -f "$dir/refused.err"
}
refused strace_cut.txt cat "line 24: strace's -s cut the read's 62 bytes after 32; capture with -s 70000"
# Without -y and without the open, nothing tells which descriptor is the node.
refused strace_no_y.txt "grep -v openat" "no descriptor is known as /dev/oem_ipc1 (reads and writes on 4): capture with -y, or give --fd N"
# An escaped quote, and a backslash escaped before the closing quote, in strace's C escapes.
escaped=$(printf '%s\n' '1 read(4</dev/oem_ipc1>, "\377\"\\", 65568) = 3' | "$emu" decode)
if [ "$escaped" != '   0.000  modem > tarvo  raw 3 bytes "\377\"\\"' ]; then
    echo "FAILED: a buffer ending in an escaped backslash reads as: $escaped" >&2
    failed=1
fi
exit $failed
