#!/usr/bin/env bash
# The example device and its servers, started, asked and stopped: ./dt demo runs this. With "private"
# it runs in namespaces of its own.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/demo
work=$(mktemp -d)
console=$work/console
mode=${1:-}
fault_log=
pids=()

stop_all() {
    kill "${pids[@]}" 2>/dev/null || true
    wait 2>/dev/null || true
    umount -l "$work/root" 2>/dev/null || true
    [ "$fault_log" != /fcm.log ] || rm -f /fcm.log
    rm -rf "$work"
}
trap stop_all EXIT
trap 'exit 1' INT TERM

fail() {
    echo "demo: $*" >&2
    exit 1
}
say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }

# What the device has printed since the last time.
show_console() {
    sed -n "$((${shown:-0} + 1)),\$p" "$console" | sed 's/^/  device| /'
    shown=$(wc -l <"$console")
}

# A root directory that the device may write to, with the system's directories in it.
make_root() {
    mkdir "$work/root"
    mount -t tmpfs tmpfs "$work/root"
    local dir
    for dir in /usr /lib /lib32 /lib64 /libx32 /bin /sbin /etc /proc /dev "$PWD"; do
        if [ -L "$dir" ]; then
            cp -a "$dir" "$work/root$dir"
        elif [ -d "$dir" ]; then
            mkdir -p "$work/root$dir"
            mount --rbind "$dir" "$work/root$dir"
        fi
    done
}

device=("$bin/examples/device")
if [ "$mode" = private ]; then
    ip link set lo up
    ip address add 192.0.2.1/24 dev lo
    ip route add default dev lo src 192.0.2.1
    if make_root 2>"$work/why"; then
        device=(chroot "$work/root" "${device[@]}")
        fault_log=$work/root/fcm.log
    fi
fi
if [ -z "$fault_log" ] && [ -w / ]; then
    [ ! -e /fcm.log ] || fail "there is a /fcm.log that the device would overwrite"
    fault_log=/fcm.log
fi

say "A first program in plain C"
"$bin/examples/minimal"

if [ "$mode" = private ]; then
    say "The device starts and broadcasts for its settings, in a network namespace of its own"
    "$bin/tools/dtctl" config examples/settings.ini >"$work/config" 2>&1 &
    pids+=($!)
    sleep 0.2
else
    say "The device starts with its defaults, over loopback"
    echo "  left out: no network namespace is allowed here, and its broadcast for settings must not"
    echo "  leave this machine"
    device+=(--offline)
    : >"$work/config"
fi
"${device[@]}" >"$console" 2>&1 &
pids+=($!)
sleep 3 # a second for the setting that nobody answers, then the pumps turn for a while
show_console
sed 's/^/  server| /' "$work/config"

say "dtctl collect: the device delivers its data"
"$bin/tools/dtctl" collect --device 127.0.0.1 --sequence 7 | cut -c1-110
echo "(lines are cut here at 110 characters; dtctl prints them whole)"

say "dtctl selftest"
"$bin/tools/dtctl" selftest --device 127.0.0.1

say "A service visit (command 2): the device reports on its debug console"
"$bin/tools/dtctl" collect --device 127.0.0.1 --command 2 --json >"$work/values"
echo "  $(wc -l <"$work/values") values as JSON lines; the first two:"
sed -n '1,2s/^/  /p' "$work/values"
sleep 0.2
show_console

say "dtctl fcm: the fault log file that it wrote"
if [ -n "$fault_log" ]; then
    "$bin/tools/dtctl" fcm "$fault_log"
else
    echo "  left out: no private root directory is allowed here, for the device's /fcm.log"
    [ ! -s "$work/why" ] || sed 's/^/  /' "$work/why"
fi
say "Done: nothing is left running"
