#!/bin/sh
# Checks the daemon's SELinux policy as far as a host can: the .te files expanded with the
# platform's macros and compiled with checkpolicy into a policy beside a minimal platform policy
# (every type, attribute, class and permission they name must exist and every rule must parse),
# the genfs contexts compiled with it, and every context in file_contexts and property_contexts
# checked against the compiled policy. The platform's neverallow rules and the device's own
# policy are only there in a device build.
set -eu
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

m4 -E tests/sepolicy/te_macros.m4 tests/sepolicy/platform_head.conf sepolicy/*.te \
    tests/sepolicy/platform_tail.conf sepolicy/genfs_contexts > "$work/policy.conf"
checkpolicy -M -c 30 -o "$work/policy" "$work/policy.conf"

cp sepolicy/file_contexts "$work/file_contexts"
sefcontext_compile -p "$work/policy" -o "$work/file_contexts.bin" "$work/file_contexts"

# Property contexts share file_contexts' "name context" columns; each name becomes a path so that
# the same check validates their contexts.
awk '!/^[[:space:]]*(#|$)/ { print "/" $1 " " $2 }' sepolicy/property_contexts \
    > "$work/property_contexts"
sefcontext_compile -p "$work/policy" -o "$work/property_contexts.bin" "$work/property_contexts"
