#!/bin/sh
# Fails when Android.bp differs from what bpfmt makes of it, and shows the difference.
set -eu
cd "$(dirname "$0")/.."
diff=$(bpfmt -d Android.bp)
[ -z "$diff" ] && exit 0
echo "$diff"
exit 1
