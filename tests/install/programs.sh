# shellcheck shell=bash
# For the scripts beside it: builds the programs in consumer/ against an installed libdt, and runs them.
set -euo pipefail
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
root=$(readlink -f "$here/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

say() { printf -- '-- %s\n' "$*"; }
fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# Shows what a command said only when it fails.
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "this failed: $*"; }; }

# programs_by_pkg_config LIBDIR TOOLS [RUNNER...]: LIBDIR holds libdt and pkgconfig/, TOOLS is what
# the compilers' names begin with.
programs_by_pkg_config() {
    local libdir=$1 tools=$2 flags strict=(-Wall -Wextra -Wpedantic -Wconversion -Werror)
    shift 2
    export PKG_CONFIG_LIBDIR=$libdir/pkgconfig
    [ "$(pkg-config --modversion dt)" = "$version" ] || fail "pkg-config finds another version"
    flags=$(pkg-config --cflags --libs dt)
    # shellcheck disable=SC2086
    "${tools}gcc" -std=c11 "${strict[@]}" "$here/consumer/c11.c" -o "$work/c11" $flags
    # shellcheck disable=SC2086
    "${tools}g++" -std=c++11 "${strict[@]}" "$here/consumer/cxx11.cpp" -o "$work/cxx11" $flags
    LD_LIBRARY_PATH=$libdir "$@" "$work/c11" || fail "c11 answers $?"
    LD_LIBRARY_PATH=$libdir "$@" "$work/cxx11" || fail "cxx11 answers $?"
}

# programs_by_cmake TAKE [OPTION...]: leaves the build in $work/TAKE.
programs_by_cmake() {
    local take=$1
    shift
    rm -rf "${work:?}/$take"
    quietly cmake -G Ninja -S "$here/consumer" -B "$work/$take" -DTAKE="$take" "$@"
    quietly cmake --build "$work/$take"
    quietly ctest --test-dir "$work/$take" --output-on-failure --no-tests=error
}

version=$(sed -n 's/^project(libdt VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt")
