#!/bin/sh
# Plays a scenario that holds the largest message the daemon reads (65,568 bytes), writes its
# transcript as pcapng, and has Debian's tshark decode it with nothing but the profile that
# `tarvo-emu wireshark-profile` writes: every message must come out as a protobuf packet, in its
# direction, between the named ends, with its fields. Then a session that `run --pcapng` takes at
# the node, with a fault and log lines.
# Usage: check_pcapng.sh TARVO_EMU SOURCE_DIR WORK_DIR
set -eu
emu=$1 source=$2 work=$3
mkdir -p "$work"
"$emu" run "$source/tests/scenarios/largest_message.textproto" --quiet \
    --transcript "$work/largest.transcript"
"$emu" decode "$work/largest.transcript" --pcapng "$work/largest.pcapng" >/dev/null
rm -rf "$work/wireshark"
"$emu" wireshark-profile "$work/wireshark/profiles/tarvo"
WIRESHARK_CONFIG_DIR="$work/wireshark" tshark -C tarvo -r "$work/largest.pcapng" \
    -Y protobuf -T fields -E separator=, -e _ws.col.Source -e _ws.col.Destination \
    -e pbf.tarvo_message.TarvoMessage.type -e pbf.tarvo_message.TarvoMessage.token \
    -e frame.packet_flags_direction -e pbf.tarvo_message.FileWriteRequest.data \
    -e exported_pdu.src_port -e exported_pdu.dst_port >"$work/largest.fields"
# What the transcript says, field by field, in tshark's terms.
expected=$(grep -E '  (modem > tarvo|tarvo > modem)  \{' "$work/largest.transcript" | sed -E \
    -e 's/^.*(modem > tarvo|tarvo > modem)  \{ type: ([A-Z]+)( message_id: [0-9]+)? token: ([0-9]+).*/\1\/\2\/\4/' \
    -e 's/^modem > tarvo\/(.*)/modem,tarvo,\1,0x00000001/' -e 's/^tarvo > modem\/(.*)/tarvo,modem,\1,0x00000002/' \
    -e 's/\//,/g')
actual=$(cut -d, -f1-5 "$work/largest.fields" | sed -E 's/^([a-z]+,[a-z]+),([0-9]+),([0-9]+),(.*)/\1,T\2,\3,\4/' |
    sed -e 's/,T1,/,REQUEST,/' -e 's/,T2,/,RESPONSE,/')
if [ "$expected" != "$actual" ]; then
    printf 'tshark read:\n%s\nthe transcript holds:\n%s\n' "$actual" "$expected" >&2
    exit 1
fi
# Each end keeps its port, which the profile decodes by: the modem's 40001, the daemon's 40002.
ports=$(awk -F, '{ print $1 ">" $2 ":" $(NF - 1) ">" $NF }' "$work/largest.fields" | sort -u | tr '\n' ' ')
if [ "$ports" != "modem>tarvo:40001>40002 tarvo>modem:40002>40001 " ]; then
    printf 'the ends and their ports came as: %s\n' "$ports" >&2
    exit 1
fi
# The data field of the 65,568-byte message arrived whole: 65,539 bytes "x", in hex.
grep '^modem,tarvo,1,1,' "$work/largest.fields" | cut -d, -f6 | tr -d '\n' | wc -c |
    grep -qx "$((65539 * 2))"

# A session taken at the node by `run --pcapng`: the end of file injected is a packet whose comment
# names it, after the request and response before it and before the daemon's line about it;
# the daemon's and its RIL library's log lines are logcat packets in the same timeline.
"$emu" run "$source/tests/scenarios/end_of_file_errno.textproto" --quiet --pcapng "$work/eof.pcapng"
WIRESHARK_CONFIG_DIR="$work/wireshark" tshark -C tarvo -r "$work/eof.pcapng" \
    -T fields -E separator='|' -e frame.comment -e logcat_text.tag -e logcat_text.log -e pbf.tarvo_message.TarvoMessage.type \
    -e pbf.tarvo_message.TarvoMessage.token >"$work/eof.fields"
order=$(awk -F'|' '
    $4 == 1 && $5 == 1 { print "request" }
    $4 == 2 && $5 == 1 { print "response" }
    $1 == "fault on oem_ipc1: end of file" { print "fault" }
    $2 == "tarvo" && $3 == "Read channel error, size:0, errno:2" { print "log" }' "$work/eof.fields" |
    tr '\n' ' ')
if [ "$order" != "request response fault log " ]; then
    printf 'run --pcapng: the request, its response, the fault and its log line came as: %s\n' \
        "$order" >&2
    exit 1
fi
grep -q '^|libvekril-client|RilClientHelperDLImpl::Open|' "$work/eof.fields"
