#!/usr/bin/env bash
# The library's bytes do not tell where it was built: reproducible.sh PRESET...
# Builds two copies of the source in different places; debug information is compared, too.
set -euo pipefail
cd "$(dirname "$0")/../.."
export CCACHE_DISABLE=1 # it would rewrite paths in its own way
places=$(mktemp -d)
trap 'rm -rf "$places"' EXIT
one=$places/one other="$places/a/third/or other"

build() {
    (cd "$1" && cmake --preset "$2" && cmake --build --preset "$2") >"$places/log" 2>&1 ||
        { cat "$places/log" >&2 && exit 1; }
}

mkdir -p "$one" "$other"
git ls-files -z | xargs -0 cp --parents -t "$one"
cp -r "$one/." "$other"
for preset; do
    build "$one" "$preset"
    build "$other" "$preset"
    cmp "$one/build/$preset/libdt.so" "$other/build/$preset/libdt.so"
done
