#!/bin/sh
# Fails when a tracked C++ file differs from what .clang-format makes of it.
set -eu
cd "$(dirname "$0")/.."
files=$(git ls-files '*.cpp' '*.h')
[ -n "$files" ] || exit 0
echo "$files" | xargs clang-format --dry-run --Werror
