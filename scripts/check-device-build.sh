#!/bin/sh
# Builds the C++ modules of Android.bp on this host as Soong would, in BUILD_DIR/device-build:
# Blueprint's own parser reads the file (bp_modules), soong.mk compiles and links each module.
# Fails on a source a module leaves out, a header Soong would not find, or a warning.
#
# Usage: check-device-build.sh BUILD_DIR
set -eu
src=$(cd "$(dirname "$0")/.." && pwd)
out=$(mkdir -p "$1/device-build" && cd "$1/device-build" && pwd)
tools=$src/scripts/device-build

GOPATH=/usr/share/gocode GO111MODULE=off GOCACHE=$out/go-cache \
    go build -o "$out/bp_modules" "$tools/bp_modules.go"
(cd "$src" && "$out/bp_modules" Android.bp) > "$out/modules.mk.new"
# Kept when unchanged, so that make rebuilds only what changed.
if cmp -s "$out/modules.mk.new" "$out/modules.mk"; then
    rm "$out/modules.mk.new"
else
    mv "$out/modules.mk.new" "$out/modules.mk"
fi
make --no-print-directory -j2 -f "$tools/soong.mk" SRC="$src" OUT="$out" || {
    echo "Android.bp: the device modules do not build as Soong would build them (see above)" >&2
    exit 1
}
