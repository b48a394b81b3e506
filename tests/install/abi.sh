#!/usr/bin/env bash
# The interface is that of abi/: abi.sh BUILD ARCHITECTURE COMPILER [renew]
# BUILD has debug information. Compared are the library's functions and globals with all that they
# lead to, every public record, and the constants that end up in programs. See docs/abi.md.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$1 architecture=$2 compiler=$3 renew=${4:-}
new=$build/abi
status=0
rm -rf "$new" && mkdir -p "$new"

write() {
    abidw --headers-dir "$build/include/dt" --drop-private-types --exported-interfaces-only \
        --no-show-locs --no-comp-dir-path --no-corpus-path --type-id-style hash "$1" >"$new/$2"
}

# Records that programs find in lists stand in no function's signature: a library of one of each.
records() {
    echo '#include <dt/dt.h>'
    grep -RhoE '^(typedef )?struct [A-Za-z0-9]+' "$build/include/dt" | awk '{ print $NF }' | sort -u |
        sed 's/.*/extern & one_&; & one_&;/'
}

constants() {
    echo '#include <dt/dt.h>' | "$compiler" -I "$build/include" -dM -E -x c - | LC_ALL=C sort |
        grep -E '^#define (DT|COLLECT)[A-Z0-9_]+ .'
    echo '#include <dt/dt.h>' | "$compiler" -I "$build/include" -E -P -x c - | sed -n '/^enum/,/^}/p'
}

# One that has changed at all is reported; incompatible changes need a new major version.
same() {
    [ -f "abi/$1" ] || { echo "abi/$1 is missing" && return 1; }
    case $1 in
    *.abi) abidiff --harmless "abi/$1" "$new/$1" ;;
    *) diff -u "abi/$1" "$new/$1" ;;
    esac
}

records | "$compiler" -g -shared -fPIC -I "$build/include" -x c - -o "$new/records.so"
write "$build/libdt.so" "libdt-$architecture.abi"
write "$new/records.so" "records-$architecture.abi"
constants >"$new/constants.txt"

for file in "libdt-$architecture.abi" "records-$architecture.abi" constants.txt; do
    if [ "$renew" = renew ]; then
        cp "$new/$file" abi/
    elif ! same "$file"; then
        echo "the interface differs from abi/$file; docs/abi.md says what may change, and how" >&2
        status=1
    fi
done
exit $status
