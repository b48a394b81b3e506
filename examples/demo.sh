#!/usr/bin/env bash
# A day of the example device, told step by step: ./dt demo runs this. With "private" it runs in
# namespaces of its own.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/demo
page=$PWD/build/faults.html
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

bold='' dim='' plain=''
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ] && [ "${TERM:-dumb}" != dumb ]; then
    bold=$'\033[1m' dim=$'\033[2m' plain=$'\033[0m'
fi
step() { printf '\n%s== %s%s\n' "$bold" "$1" "$plain"; }
tell() { sed 's/^/   /'; }
command_line() { printf '\n%s$ %s%s\n' "$dim" "$*" "$plain"; }
run_dtctl() { "$bin/tools/dtctl" "$@" >"$work/shown" 2>"$work/why" || fail "$(cat "$work/why")"; }
dtctl() {
    command_line dtctl "$@"
    run_dtctl "$@"
    cut -c1-100 "$work/shown"
}

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

# Where the device may write its fault log file; nowhere, if this machine's root has one already.
find_place() {
    device=("$bin/examples/device")
    if [ "$mode" = private ]; then
        ip link set lo up
        if make_root 2>"$work/refused"; then
            device=(chroot "$work/root" "${device[@]}")
            fault_log=$work/root/fcm.log
        fi
    fi
    [ -z "$fault_log" ] && [ -w / ] || return 0
    [ ! -e /fcm.log ] || fail "there is a /fcm.log, which the device would overwrite: please move it away"
    fault_log=/fcm.log
}

has_server() { grep -q listening "$work/config" 2>/dev/null; }

start_servers_and_device() {
    "$bin/tools/dtctl" config --bind 127.0.0.1 examples/settings.ini >"$work/config" 2>&1 &
    pids+=($!)
    while kill -0 $! 2>/dev/null && ! has_server; do sleep 0.1; done
    has_server || device+=(--offline) # another program would get its questions
    "${device[@]}" >"$console" 2>&1 &
    pids+=($!)
}

# Until the device has its settings and has worked for two seconds. One that ends instead has found
# its port taken: whoever answers there is not the device.
await_device() {
    local device_pid=${pids[-1]} tenth after=20
    for ((tenth = 0; tenth < 300 && after > 0; tenth++)); do
        sleep 0.1
        kill -0 "$device_pid" 2>/dev/null || {
            show_console >&2
            fail "the device has ended; is another program using UDP port 9099? (ss -lunp)"
        }
        ! grep -q 'device starts' "$console" || after=$((after - 1))
    done
    [ "$after" = 0 ] || fail "the device did not start within 30 seconds"
}

dtfleet() {
    command_line dtfleet "$@"
    DTFLEET_CONFIG=$work/fleet.toml "$bin/tools/fleet/dtfleet" "$@" >"$work/shown" || fail "dtfleet $* fails"
    head -n 14 "$work/shown" | cut -c1-100
}

# Other ports than the device's, and than those of a fleet that is at work here.
start_fleet() {
    cat >"$work/fleet.toml" <<'END_OF_FILE'
listen = 9198
interval = "1s"
include = "devices.toml"
[limits]
silence = "1s"
END_OF_FILE
    "$bin/tools/fleet/dtfleet" simulate 100 --dead 5 --port 9199 --seconds 600 \
        --inventory "$work/devices.toml" >/dev/null 2>"$work/why" &
    pids+=($!)
    until [ -s "$work/devices.toml" ] || ! kill -0 "${pids[-1]}" 2>/dev/null; do sleep 0.1; done
    "$bin/tools/fleet/dtfleet" run --config "$work/fleet.toml" 2>>"$work/why" &
    pids+=($!)
}

# Until the dead ones are known to be: three turns.
await_fleet() {
    local tenth shown_fleet
    for ((tenth = 0; tenth < 600; tenth++)); do
        shown_fleet=$("$bin/tools/fleet/dtfleet" status --config "$work/fleet.toml" --format table 2>/dev/null) || true
        [[ $shown_fleet != *" 95 ok, 5 failing"* ]] || return 0
        kill -0 "${pids[-1]}" 2>/dev/null || fail "$(tail -n 1 "$work/why")"
        sleep 0.1
    done
    fail "the fleet is not collected within a minute"
}

show_fleet() {
    start_fleet
    await_fleet
    dtfleet status --format table
    dtfleet history sim000007 pump --limit 3 --format table
}

echo
tell <<'END_OF_TEXT'
A pump controller (examples/device.cpp, a program that uses libdt) now starts in the background and
works for three seconds. dtctl, the program for the other side, plays the servers. All of it stays on
this machine, and is stopped at the end.
END_OF_TEXT
find_place
start_servers_and_device
await_device

step "1 of 6: the server asks, the device delivers"
tell <<'END_OF_TEXT'
dtctl sends the device a command of 16 bytes. The device connects back, asks each of its components
("collectors") for their values and sends them. So you see inside a running device whenever you want,
without a shell on it.
END_OF_TEXT
dtctl collect --device 127.0.0.1
echo "(lines are cut here at 100 characters)"

step "2 of 6: the device tests itself"
tell <<'END_OF_TEXT'
Another command: now each component runs its self-test and sends the result. So production, or a
technician in the field, can check a device without opening it.
END_OF_TEXT
dtctl selftest --device 127.0.0.1

step "3 of 6: the device had asked for its settings"
tell <<'END_OF_TEXT'
When it started, the device asked its configuration server for three settings. The server answered
two of them; for the third the device took its own default, a second later. So a hundred devices get
their limits from one file.
END_OF_TEXT
command_line dtctl config --bind 127.0.0.1 examples/settings.ini
sed 's/^/  server| /' "$work/config"
has_server || echo "  (Left out: without its server the device took its defaults.)"
show_console

step "4 of 6: a visit by the service engineer"
tell <<'END_OF_TEXT'
The server's command carries a number. This device takes 2 for a visit: besides delivering its data
(here as JSON, for programs) it prints a table and its memory accounts on its own debug console, and
writes its fault log file. So the engineer at the device sees what happens, and what leaks memory.
END_OF_TEXT
command_line "dtctl collect --device 127.0.0.1 --command 2 --json | head -n 2"
run_dtctl collect --device 127.0.0.1 --command 2 --json
head -n 2 "$work/shown"
sleep 0.2 # its report goes on behind the last value
echo
show_console

step "5 of 6: what was wrong, after the fact"
tell <<'END_OF_TEXT'
The fault log file holds what the device's components logged and counted up to that visit. It is
carried to a developer, who reads it without the device: as a table, or as a page for the browser.
END_OF_TEXT
if [ -n "$fault_log" ]; then
    cp "$fault_log" "$work/fcm.log"
    (cd "$work" && dtctl fcm fcm.log)
    command_line "dtctl fcm --html fcm.log >${page#"$PWD/"}"
    "$bin/tools/dtctl" fcm --html "$work/fcm.log" >"$page"
else
    page=
    echo
    echo "  (Left out: the device writes /fcm.log, and may not write there on this machine.)"
    [ ! -s "$work/refused" ] || sed 's/^/  /' "$work/refused"
fi

step "6 of 6: a hundred devices"
tell <<'END_OF_TEXT'
dtfleet is the service for many devices: it asks each in its turn, and keeps what they send in a
database. Here a hundred simulated ones, of which five never answer, are asked every second.
END_OF_TEXT
show_fleet

step "Done: nothing is left running"
[ -z "$page" ] || tell <<END_OF_TEXT
Open the page in a browser:     file://$page
END_OF_TEXT
tell <<'END_OF_TEXT'
Write such a program yourself:  README.md, "A first program"
Then step by step:              docs/tutorial.md
Read this device's program:     examples/device.cpp
Collect a fleet, with its page
at http://127.0.0.1:8098/:      docs/fleet.md
END_OF_TEXT
