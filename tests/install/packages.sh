#!/usr/bin/env bash
# The Debian packages are sound, and installed they serve programs: packages.sh DIRECTORY
# shellcheck source-path=SCRIPTDIR source=programs.sh
. "$(dirname "$0")/programs.sh"
packages=$(readlink -f "$1")
native=$(dpkg --print-architecture)

field() { dpkg-deb -f "$packages/$1_${version}_$2.deb" "$3"; }

# The newest version of libc's symbols that a library asks for.
libc_asked_for() {
    readelf -V "$1" | grep -o 'GLIBC_[0-9.]*' | sort -uV | tail -n 1 | cut -d_ -f2
}

# Unpacks the library's packages into a root of their own: $target, with the libraries in $libdir.
install_into_root() {
    local architecture=$1 package
    target=$work/$architecture
    libdir=$target/usr/lib/$(dpkg-architecture -a"$architecture" -qDEB_HOST_MULTIARCH 2>/dev/null)
    for package in libdt1 libdt-dev; do
        [ ! -e "$libdir/libdt.so" ] || fail "libdt.so is in libdt1: it belongs to libdt-dev"
        dpkg-deb -x "$packages/${package}_${version}_$architecture.deb" "$target"
    done
}

check_dependencies() {
    local architecture=$1 library=$2 stated
    stated=$(field libdt1 "$architecture" Depends)
    [[ $stated =~ ^libc6\ \(\>=\ ([0-9.]+)\)$ ]] || fail "libdt1 depends on '$stated', not libc6 alone"
    dpkg --compare-versions "${BASH_REMATCH[1]}" ge "$(libc_asked_for "$library")" ||
        fail "libdt1 needs a newer libc6 than '$stated' ($architecture)"
    [ "$(field libdt-dev "$architecture" Depends)" = "libdt1 (= $version)" ] ||
        fail "libdt-dev belongs to another libdt1"
    [ "$(field libdt1 "$architecture" Multi-Arch)" = same ] ||
        fail "libdt1 shares its place with no other architecture"
}

say "lintian"
[ "$(dpkg-parsechangelog -l "$root/cmake/debian/changelog" -S Version)" = "$version" ] ||
    fail "cmake/debian/changelog is of another version"
[ "$(sed -n 's/^## //p' "$root/CHANGELOG.md" | head -n 1)" = "$version" ] ||
    fail "CHANGELOG.md is of another version"
quietly lintian --fail-on error "$packages"/*.deb

for architecture in "$native" armel; do
    say "$architecture"
    install_into_root "$architecture"
    check_dependencies "$architecture" "$libdir/libdt.so.1"
    "$root/tests/checks/hardened.sh" readelf "$libdir/libdt.so.1" || fail "libdt1 is not hardened"
    "$root/tests/checks/needs.sh" readelf "$libdir/libdt.so.1" || fail "libdt1 needs more than libc"
    if [ "$architecture" = armel ]; then
        programs_by_pkg_config "$libdir" arm-linux-gnueabi- qemu-arm -L /usr/arm-linux-gnueabi
    else
        programs_by_pkg_config "$libdir" ""
        programs_by_cmake find -DCMAKE_PREFIX_PATH="$target/usr"
    fi
done

say "dtctl"
dpkg-deb -x "$packages/dtctl_${version}_$native.deb" "$work/host"
"$work/host/usr/bin/dtctl" --help >/dev/null || fail "dtctl does not run"
"$root/tests/checks/hardened.sh" readelf "$work/host/usr/bin/dtctl" || fail "dtctl is not hardened"
dpkg-deb -f "$packages/dtctl_${version}_$native.deb" Depends | grep -q libc6 ||
    fail "dtctl states no dependencies"

say "dtfleet"
dpkg-deb -x "$packages/dtfleet_${version}_$native.deb" "$work/host"
fleet=$work/host/usr/bin/dtfleet
"$root/tests/checks/hardened.sh" readelf "$fleet" || fail "dtfleet is not hardened"
needs=$(field dtfleet "$native" Depends)
for need in libc6 libsqlite3-0 libpq5 libmicrohttpd12; do
    [[ $needs == *$need* ]] || fail "dtfleet states no dependency on $need"
done
"$fleet" check --config "$work/host/etc/dtfleet/fleet.toml" >/dev/null || fail "the sample is no configuration"
[ -d "$work/host/etc/dtfleet/devices.d" ] || fail "there is no directory for the devices"
[ "$(dpkg-deb -I "$packages/dtfleet_${version}_$native.deb" conffiles)" = /etc/dtfleet/fleet.toml ] ||
    fail "a new version of dtfleet would overwrite its configuration"
grep -q uPlot "$work/host/usr/share/doc/dtfleet/copyright" || fail "uPlot's licence is left out"
# A fresh machine: the user, and a unit that its manager takes as it is.
if [ -x "$(command -v systemd-analyze)" ]; then
    systemd-sysusers --dry-run --root="$work/host" >"$work/log" 2>&1 || fail "sysusers.d is not understood"
    grep -q "user 'dtfleet'" "$work/log" || fail "there is no user dtfleet"
    sed "s|=dtfleet |=$fleet |" "$work/host/usr/lib/systemd/system/dtfleet.service" >"$work/dtfleet.service"
    complaints=$(systemd-analyze verify --man=no "$work/dtfleet.service" 2>&1) && [ -z "$complaints" ] ||
        fail "systemd says: $complaints"
fi
