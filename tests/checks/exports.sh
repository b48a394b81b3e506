#!/bin/sh
# The library exports what the list says, no more and no less: exports.sh NM LIBRARY LIST
set -u
found=$("$1" -D --defined-only "$2" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort)
listed=$(grep '^[A-Za-z_]' "$3" | LC_ALL=C sort)
[ "$found" = "$listed" ] && exit 0
echo "exported (>) and listed (<) symbols differ:"
work=$(mktemp -d) || exit 1
trap 'rm -r "$work"' EXIT
printf '%s\n' "$found" >"$work/found"
printf '%s\n' "$listed" | diff - "$work/found" | grep '^[<>]'
exit 1
