#!/bin/sh
# Wireshark's live capture of the rig, as a user gets it: `tarvo-emu wireshark-install` in a fresh
# home, then Debian's tshark lists the interface and captures from it through the launcher. The
# scenario's messages and the client's request after it must come out decoded with their fields,
# in order and in their directions, and once tshark has stopped the capture no process, mount or
# temporary tree of the rig may be left.
# Usage: extcap.sh TARVO_EMU SOURCE_DIR WORK_DIR
set -eu
emu=$1 source=$2 work=$3
rm -rf "$work"
mkdir -p "$work/home" "$work/tmp"
# tshark finds the launcher by HOME (as root it ignores WIRESHARK_EXTCAP_DIR); the rig makes its
# trees under TMPDIR.
export HOME="$work/home" TMPDIR="$work/tmp"

"$emu" wireshark-install >"$work/install.out"
grep -q "/.config/wireshark/extcap/" "$work/install.out"
grep -q "/.local/lib/wireshark/extcap/" "$work/install.out"
tshark -D 2>/dev/null >"$work/interfaces"
for interface in tarvo-rig tarvo-device; do
    if ! grep -q "^[0-9]*\. $interface " "$work/interfaces"; then
        printf 'tshark -D does not list %s:\n%s\n' "$interface" "$(cat "$work/interfaces")" >&2
        exit 1
    fi
done

tshark -i tarvo-rig -o "extcap.tarvo_rig.scenario:$source/tests/scenarios/first.textproto" \
    -o extcap.tarvo_rig.client:-m -a duration:8 -w "$work/live.pcapng" 2>"$work/tshark.err"
tshark -C tarvo -r "$work/live.pcapng" -Y protobuf -T fields -E separator=, \
    -e _ws.col.Source -e _ws.col.Destination -e pbf.tarvo_message.TarvoMessage.type \
    -e pbf.tarvo_message.TarvoMessage.message_id -e pbf.tarvo_message.TarvoMessage.token \
    -e pbf.tarvo_message.PropertyReadRequest.name -e pbf.tarvo_message.PropertyReadResponse.value \
    >"$work/live.fields"
# The property read of the scenario, its answer, and the statistics request that `tarvo -m` makes;
# tshark shows the strings ("ro.build.type", "userdebug") in hex.
expected='modem,tarvo,1,7,1,726f2e6275696c642e74797065,
tarvo,modem,2,7,1,,757365726465627567
tarvo,modem,1,5,'
actual=$(head -3 "$work/live.fields" | sed -E '3s/^(tarvo,modem,1,5,).*/\1/')
if [ "$actual" != "$expected" ]; then
    printf 'the live capture holds:\n%s\nnot:\n%s\ntshark said:\n%s\n' "$(cat "$work/live.fields")" \
        "$expected" "$(cat "$work/tshark.err")" >&2
    exit 1
fi

# A soak instead of a scenario: its traffic comes out decoded as it plays.
tshark -i tarvo-rig -o extcap.tarvo_rig.soakseed:7 -a duration:8 -w "$work/soak.pcapng" \
    2>"$work/tshark.err"
tshark -C tarvo -r "$work/soak.pcapng" -Y protobuf -T fields -E separator=, \
    -e _ws.col.Source -e pbf.tarvo_message.TarvoMessage.type >"$work/soak.fields"
if ! grep -q '^modem,[0-9]' "$work/soak.fields" || ! grep -q '^tarvo,[0-9]' "$work/soak.fields"; then
    printf 'the live soak holds no decoded messages both ways:\n%s\ntshark said:\n%s\n' \
        "$(head "$work/soak.fields")" "$(cat "$work/tshark.err")" >&2
    exit 1
fi

# Packets reach Wireshark as they happen, not when the capture ends: the demo (the scenario when
# none is given) fills tshark's count of packets long before the capture's time is up.
start=$(date +%s)
tshark -i tarvo-rig -c 5 -a duration:60 -w "$work/count.pcapng" 2>"$work/tshark.err"
if [ $(($(date +%s) - start)) -ge 30 ] || [ "$(capinfos -c -M "$work/count.pcapng" |
    awk '/Number of packets/ { print $NF }')" != 5 ]; then
    printf 'the first 5 packets of the demo did not come while it played:\n%s\n' \
        "$(cat "$work/tshark.err")" >&2
    exit 1
fi

# Nothing of the rig is left: its temporary trees (and the mounts in them) are gone, and no
# process runs with one on its command line.
# tshark does not wait for the extcap to end after stopping it, so the clean-up may still run: it is
# given up to 30 s, which a loaded machine needs.
left() {
    [ -n "$(ls -A "$work/tmp")" ] || grep -q "$work/tmp" /proc/mounts ||
        grep -lqs "$work/tm[p]" /proc/[0-9]*/cmdline
}
tries=0
while left && [ $tries -lt 300 ]; do
    sleep 0.1
    tries=$((tries + 1))
done
if left; then
    printf 'left after the capture: %s\n' "$(ls -A "$work/tmp")" >&2
    exit 1
fi
