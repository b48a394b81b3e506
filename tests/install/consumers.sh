#!/usr/bin/env bash
# An installed libdt serves programs by all usual means: consumers.sh RELEASE_BUILD ARMEL_BUILD
# shellcheck source-path=SCRIPTDIR source=programs.sh
. "$(dirname "$0")/programs.sh"
release=$(readlink -f "$1")
armel=$(readlink -f "$2")

# The files that an install consists of, and that they lead to each other.
check_layout() {
    local prefix=$1 file
    for file in include/dt/dt.h include/dt/platform/vrk.h lib/pkgconfig/dt.pc \
        lib/cmake/dt/dt{Config,ConfigVersion,Targets}.cmake; do
        [ -f "$prefix/$file" ] || fail "no $file"
    done
    [ "$(readlink "$prefix/lib/libdt.so")" = libdt.so.1 ] || fail "libdt.so is no link to libdt.so.1"
    [ "$(readlink "$prefix/lib/libdt.so.1")" = "libdt.so.$version" ] || fail "libdt.so.1 leads elsewhere"
    "$prefix/bin/dtctl" --help >/dev/null || fail "dtctl does not run"
    file=$(grep -rlF -e "$root" -e "$work" "$prefix" || true)
    [ -z "$file" ] || fail "these know where they were made: $file"
}

# A static libdt leaves a program its names, lets it replace what it may, and brings no C++ runtime.
check_static() {
    local names
    names=$(nm -g --defined-only "$1/lib/libdt.a" | awk 'NF == 3 { print $3 }' | sort -u |
        grep -vxF -f "$root/cmake/exports.txt" | grep -v '^_ZN*K*2dt' || true)
    [ -z "$names" ] || fail "libdt.a defines $names"
    names=$(nm -g --defined-only "$1/lib/libdt.a" | awk '$2 ~ /[TBDR]/ { print $3 }' |
        grep -xF -f "$root/cmake/replaceable.txt" || true)
    [ -z "$names" ] || fail "libdt.a lets no program replace $names"
    names=$(readelf -d "$work/find/c11" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    [ "$names" = libc.so.6 ] || fail "a C program with libdt.a needs $names"
}

say "a prefix, by pkg-config and by find_package, after a move"
quietly cmake --install "$release" --prefix "$work/first"
mkdir "$work/a place" && mv "$work/first" "$work/a place/moved"
prefix="$work/a place/moved"
check_layout "$prefix"
programs_by_cmake find -DCMAKE_PREFIX_PATH="$prefix"
ln -s "$prefix" "$work/moved" # the shell splits what pkg-config prints
programs_by_pkg_config "$work/moved/lib" ""

say "a part of another project, by add_subdirectory"
programs_by_cmake subdirectory -DLIBDT="$root"

say "a part of another project, by FetchContent; static, installed with it"
programs_by_cmake fetch -DLIBDT="$root" -DBUILD_SHARED_LIBS=OFF
quietly cmake --install "$work/fetch" --prefix "$work/static"
programs_by_pkg_config "$work/static/lib" ""
programs_by_cmake find -DCMAKE_PREFIX_PATH="$work/static" -DLANGUAGES=C
check_static "$work/static"

say "a system root for 32-bit ARM"
DESTDIR=$work/sysroot quietly cmake --install "$armel"
emulator=(qemu-arm -L /usr/arm-linux-gnueabi)
programs_by_pkg_config "$work/sysroot/usr/lib/arm-linux-gnueabi" arm-linux-gnueabi- "${emulator[@]}"
cat >"$work/armel.cmake" <<END
include("$root/cmake/armel.cmake")
list(PREPEND CMAKE_FIND_ROOT_PATH "$work/sysroot")
END
programs_by_cmake find --toolchain "$work/armel.cmake"
