#!/bin/sh
# The scenario language's page names, as `kind`, every step kind that the console's help lists
# from the schema.
# Usage: readme_step_kinds.sh TARVO_EMU PAGE
set -e
emu=$1
page=$2

# The help lists each kind on a line of its own: two spaces, the kind, a space, its example.
kinds=$(echo help | "$emu" console | sed -n 's/^  \([a-z_]*\) .*/\1/p')
[ -n "$kinds" ] || { echo "the console's help lists no step kind" >&2; exit 1; }
for kind in $kinds; do
    grep -q "\`$kind\`" "$page" || { echo "$page does not name $kind" >&2; exit 1; }
done
