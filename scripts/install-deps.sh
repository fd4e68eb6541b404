#!/bin/sh
# Installs every Debian package that the host build, the rig and the tests need. Safe to run again:
# it returns at once when everything is already there.
set -eu

packages="build-essential cmake pkg-config ccache clang-format \
  protobuf-compiler libprotobuf-dev \
  android-liblog-dev android-libbase-dev libfmt-dev \
  libgtest-dev libgmock-dev libbenchmark-dev linux-perf valgrind \
  libfuse3-dev fuse3 bubblewrap gnuplot-nox clang libclang-rt-14-dev \
  blueprint-tools golang-go golang-github-google-blueprint-dev \
  checkpolicy selinux-utils setools python3-selinux m4 python3 \
  nlohmann-json3-dev libedit-dev libcli11-dev gcovr strace tshark"

missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "Installing:$missing"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing
