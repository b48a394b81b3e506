#!/bin/sh
# Every test that docs/decisions.md names exists: decisions.sh ROOT
set -u
missing=0
for name in $(grep -oE '[A-Z][A-Za-z0-9]+\.[A-Z][A-Za-z0-9]+' "$1/docs/decisions.md" | sort -u); do
    grep -rqE "TEST(_F)?\(${name%.*}, ${name#*.}\)" "$1/tests" || {
        echo "docs/decisions.md names no test: $name"
        missing=1
    }
done
exit $missing
