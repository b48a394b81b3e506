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

# refused TEXT COMMAND...: a compiler says what to do, instead of a program that goes wrong.
refused() {
    local text=$1 said
    shift
    said=$("$@" -o "$work/refused" 2>&1) && fail "this is not refused: $*"
    [[ $said == *"$text"* ]] || fail "instead of '$text': $said"
}

# build_library NAME OPTION...: the library alone, in $work/NAME.
build_library() {
    local name=$1
    shift
    quietly cmake -G Ninja -S "$root" -B "$work/$name" -D DT_BUILD_TOOLS=OFF -D DT_BUILD_EXAMPLES=OFF \
        -D DT_BUILD_TESTS=OFF "$@"
    quietly cmake --build "$work/$name"
}

# A library without the defaults leaves the five functions open, and takes them from wherever they are.
check_layer() {
    local open flags=(-I "$work/none/include" -I "$root/examples" -Wl,-rpath,"$work/none") order
    build_library none -D DT_PLATFORM=none
    open=$(nm -D -u "$work/none/libdt.so" | awk '$1 == "U" && $2 !~ /@/ { print $2 }' | tr '\n' ' ')
    [ "$open" = "TMB_snprintf VRK_Delay VRK_Free VRK_Malloc VRK_RawPrint " ] || fail "left open: $open"
    gcc -shared -fPIC "$root/examples/platform.c" "${flags[@]:0:4}" -o "$work/none/libplat.so"
    for order in "-ldt -lplat" "-lplat -ldt" "-Wl,--as-needed -ldt -lplat"; do
        # shellcheck disable=SC2086
        gcc "$here/consumer/layer.c" "${flags[@]}" -L "$work/none" $order -o "$work/layer"
        "$work/layer" || fail "$order: the layer is not used ($?)"
    done
    refused "VRK_Malloc" gcc "$here/consumer/layer.c" "${flags[@]}" -L "$work/none" -ldt
}

# 32-bit programs whose times have 64 bits fit a library of their kind alone.
check_times() {
    local long=(-D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64) flags run=(qemu-arm -L /usr/arm-linux-gnueabi)
    local compile=(arm-linux-gnueabi-gcc "$here/consumer/clock.c" -o "$work/clock")
    "${compile[@]}" -I "$armel/include" -L "$armel" -ldt
    LD_LIBRARY_PATH=$armel "${run[@]}" "$work/clock" || fail "a clock of 32 bits answers $?"
    refused "drop -D_TIME_BITS=64" "${compile[@]}" "${long[@]}" -I "$armel/include" -L "$armel" -ldt

    build_library time64 --toolchain "$root/cmake/armel.cmake" -D CMAKE_CXX_FLAGS="${long[*]}"
    DESTDIR=$work/image quietly cmake --install "$work/time64" --prefix /usr
    flags=$(PKG_CONFIG_LIBDIR=$work/image/usr/lib/pkgconfig pkg-config --cflags --libs dt)
    # shellcheck disable=SC2086
    "${compile[@]}" "${long[@]}" $flags
    LD_LIBRARY_PATH=$work/time64 "${run[@]}" "$work/clock" || fail "a clock of 64 bits answers $?"
    # shellcheck disable=SC2086
    refused "build with -D_TIME_BITS=64" "${compile[@]}" $flags
}

# Another C library, from Debian's musl-tools; libdt's sources need nothing of C++'s.
check_musl() {
    build_library musl -D BUILD_SHARED_LIBS=OFF -D CMAKE_C_COMPILER=musl-gcc \
        -D CMAKE_CXX_FLAGS="-specs=/usr/lib/$(gcc -print-multiarch | sed s/-gnu/-musl/)/musl-gcc.specs"
    musl-gcc -static "$here/consumer/c11.c" -I "$work/musl/include" -L "$work/musl" -ldt -o "$work/c11"
    "$work/c11" || fail "c11 answers $?"
}

say "a prefix, by pkg-config and by find_package, after a move"
quietly cmake --install "$release" --prefix "$work/first"
mkdir "$work/a place" && mv "$work/first" "$work/a place/moved"
prefix="$work/a place/moved"
check_layout "$prefix"
refused "libdt needs a little-endian machine" gcc -c "$here/consumer/c11.c" -I "$prefix/include" \
    -Wno-builtin-macro-redefined -D__BYTE_ORDER__=__ORDER_BIG_ENDIAN__
programs_by_cmake find -DCMAKE_PREFIX_PATH="$prefix"
ln -s "$prefix" "$work/moved" # the shell splits what pkg-config prints
programs_by_pkg_config "$work/moved/lib" ""

say "a build without the packages of dtctl and of the tests"
cmake -S "$root" -B "$work/less" -D CMAKE_DISABLE_FIND_PACKAGE_fmt=ON \
    -D CMAKE_DISABLE_FIND_PACKAGE_GTest=ON >"$work/log" || fail "it cannot be made ready"
grep -q "No dtctl: it needs fmt" "$work/log" && grep -q "No tests: they need GoogleTest" "$work/log" ||
    fail "it does not say what is left out"
grep -q "^CMAKE_BUILD_TYPE:STRING=Release" "$work/less/CMakeCache.txt" || fail "it is not optimised"

say "a part of another project, by add_subdirectory"
programs_by_cmake subdirectory -DLIBDT="$root"

say "a part of another project, by FetchContent; static, installed with it"
programs_by_cmake fetch -DLIBDT="$root" -DBUILD_SHARED_LIBS=OFF
quietly cmake --install "$work/fetch" --prefix "$work/static"
programs_by_pkg_config "$work/static/lib" ""
programs_by_cmake find -DCMAKE_PREFIX_PATH="$work/static" -DLANGUAGES=C
check_static "$work/static"

say "a platform layer in a library of its own"
check_layer
say "musl, static"
check_musl

say "a system root for 32-bit ARM"
DESTDIR=$work/sysroot quietly cmake --install "$armel"
emulator=(qemu-arm -L /usr/arm-linux-gnueabi)
programs_by_pkg_config "$work/sysroot/usr/lib/arm-linux-gnueabi" arm-linux-gnueabi- "${emulator[@]}"
cat >"$work/armel.cmake" <<END
include("$root/cmake/armel.cmake")
list(PREPEND CMAKE_FIND_ROOT_PATH "$work/sysroot")
END
programs_by_cmake find --toolchain "$work/armel.cmake"

say "times of 32 and of 64 bits"
check_times

say "uninstalled"
build_library gone
quietly cmake --install "$work/gone" --prefix "$work/old"
mkdir -p "$work/old/include" && echo mine >"$work/old/include/dt.h"
quietly cmake --build "$work/gone" --target uninstall
left=$(find "$work/old" -path "$work/old/include/dt.h" -o ! -type d -print -o -name dt -print)
[ -z "$left" ] || fail "these stay behind: $left"
[ -f "$work/old/include/dt.h" ] || fail "what was not libdt's is gone"
