#!/bin/sh
# The library exports what the list says, no more and no less: exports.sh NM LIBRARY LIST
set -u
found=$("$1" -D --defined-only "$2" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort)
listed=$(grep '^[A-Za-z_]' "$3" | LC_ALL=C sort)
[ "$found" = "$listed" ] && exit 0
echo "exported (+) and listed (-) symbols differ:"
printf '%s\n' "$found" >"/tmp/exports.$$"
printf '%s\n' "$listed" | diff -U0 - "/tmp/exports.$$" | grep '^[+-][A-Za-z_]'
rm -f "/tmp/exports.$$"
exit 1
