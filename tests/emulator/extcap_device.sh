#!/bin/sh
# Wireshark's live capture of a phone's daemon, with the device command pointed at the daemon of a
# rig session on this machine: the same strace line as on a phone, so the same lines. Each message
# of the session comes out decoded with its fields, the faults as packet comments, and the capture
# ends with the command. A device command that fails has its message reach tshark's output, and
# over a stand-in adb each cause that stops the default command is named with its fix.
# Usage: extcap_device.sh TARVO_EMU SOURCE_DIR WORK_DIR
set -eu
emu=$1 source=$2 work=$3
. "$source/tests/captures/daemon_of_run.sh"
rm -rf "$work"
mkdir -p "$work/home"
export HOME="$work/home"
"$emu" wireshark-install >/dev/null

# The session of the kept captures, whose first step gives strace time to attach.
"$emu" run "$source/tests/captures/session.textproto" --quiet >/dev/null &
run=$!
pid=$(daemon_of_run "$run") || { echo "no daemon to trace" >&2; kill "$run"; exit 1; }
tshark -i tarvo-device -o "extcap.tarvo_device.devicecommand:strace -f -ttt -y -xx -s 70000 \
-e trace=read,write,ioctl -P /dev/oem_ipc1 -P /dev/umts_boot0 -o /proc/self/fd/1 -p $pid" \
    -a duration:60 -w "$work/device.pcapng" 2>"$work/tshark.err"
wait "$run"
tshark -C tarvo -r "$work/device.pcapng" -T fields -E separator=, \
    -e _ws.col.Source -e _ws.col.Destination -e pbf.tarvo_message.TarvoMessage.type \
    -e pbf.tarvo_message.TarvoMessage.message_id -e pbf.tarvo_message.TarvoMessage.token \
    -e frame.comment >"$work/device.fields"
# The property read and its answer, the statistics request of `tarvo -m`, the read error and the
# end of file, each followed by a message that shows the node served again.
got=$(awk -F, '
    $3 == 1 && $4 == 7 && $5 == 1 { print "request" }
    $1 == "tarvo" && $3 == 2 && $5 == 1 { print "response" }
    $1 == "tarvo" && $3 == 1 && $4 == 5 { print "statistics" }
    $6 == "fault on oem_ipc1: read error" { print "read-error" }
    $3 == 1 && $4 == 7 && $5 == 3 { print "request" }
    $6 == "fault on oem_ipc1: end of file" { print "end-of-file" }
    $3 == 3 && $4 == 9 { print "indication" }' "$work/device.fields" | uniq | tr '\n' ' ')
if [ "$got" != "request response statistics read-error request end-of-file indication " ]; then
    printf 'the device capture holds: %s\n%s\ntshark said:\n%s\n' "$got" \
        "$(cat "$work/device.fields")" "$(cat "$work/tshark.err")" >&2
    exit 1
fi

# A device command that fails: its message is what tshark reports.
tshark -i tarvo-device -o \
    'extcap.tarvo_device.devicecommand:echo "tarvo-device: no device: plug one in" >&2; exit 1' \
    -a duration:30 -w "$work/failed.pcapng" >"$work/failed.out" 2>&1 || true
grep -q "tarvo-device: no device: plug one in" "$work/failed.out"

# Without a device command, adb: each thing that stops it is named with its fix, and the capture
# fails. A stand-in adb plays the phones that `adb devices` lists and what they answer.
mkdir -p "$work/bin"
cat >"$work/bin/adb" <<'ADB'
#!/bin/sh
[ "$1" = -s ] && shift 2
case "$1" in
devices) echo "List of devices attached"; for d in $(echo "$DEVICES" | tr , ' '); do printf '%s\tdevice\n' "$d"; done ;;
root) echo "restarting adbd as root" ;;
shell) case "$*" in *ro.build.type*) echo "$BUILD" ;; *pidof*) echo "$PID" ;; esac ;;
esac
ADB
chmod +x "$work/bin/adb"
# refused MESSAGE ENVIRONMENT [OPTION...]: the capture fails, saying MESSAGE.
refused() {
    expected=$1 environment=$2
    shift 2
    # shellcheck disable=SC2086 # the environment's assignments are words
    if env $environment "$emu" extcap --extcap-interface tarvo-device --capture \
        --fifo "$work/refused.pcapng" "$@" 2>"$work/refused.err"; then
        echo "tarvo-device captured with $environment $*" >&2
        exit 1
    fi
    if ! grep -qF "tarvo-device: $expected" "$work/refused.err"; then
        printf 'with %s %s, tarvo-device said:\n%s\nnot: %s\n' "$environment" "$*" \
            "$(cat "$work/refused.err")" "$expected" >&2
        exit 1
    fi
}
refused "no adb on PATH" PATH=/usr/bin:/bin
fake=PATH=$work/bin:/usr/bin:/bin
refused "no device: connect a phone" "$fake DEVICES="
refused "several devices (A1 B2): pick one with the Serial option" "$fake DEVICES=A1,B2"
refused "no device C3: adb devices lists A1" "$fake DEVICES=A1" --serial C3
refused "a user build" "$fake DEVICES=A1 BUILD=user"
refused "the daemon is not running" "$fake DEVICES=A1 BUILD=userdebug PID="
# The serial selector lists what adb lists.
env $fake DEVICES=A1,B2 "$emu" extcap --extcap-interface tarvo-device --extcap-config |
    grep -q '^value {arg=0}{value=B2}{display=B2}'
