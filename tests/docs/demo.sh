#!/usr/bin/env bash
# The demo as a program sees it, after ./dt demo has built it: unshare -nm tests/docs/demo.sh
# It leaves its page and no colours, and where its port is taken it says so and shows nobody's data.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=$(mktemp)
trap 'rm -f "$out"' EXIT
fail() {
    cat "$out"
    echo "demo.sh: $*" >&2
    exit 1
}

rm -f build/faults.html
examples/demo.sh private >"$out" 2>&1 || fail "the demo fails"
grep -q "file://$PWD/build/faults.html" "$out" || fail "no page is named"
grep -q '^100 devices: 95 ok, 5 failing$' "$out" || fail "no fleet is collected"
[ -s build/faults.html ] || fail "there is no page"
! grep -q $'\033' "$out" || fail "there are escape sequences in a file"

exec 3< <(exec python3 -c '
import socket, time
taken = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
taken.bind(("", 9099))
print(flush=True)
time.sleep(60)')
trap 'kill $!; rm -f "$out"' EXIT
read -r -u 3
! examples/demo.sh >"$out" 2>&1 || fail "the demo goes on although its port is taken"
grep -q 'using UDP port 9099' "$out" || fail "the demo does not say that its port is taken"
! grep -q '^collector' "$out" || fail "the demo shows another program's data"
echo "the demo tells its story, and when it cannot"
