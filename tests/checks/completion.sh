#!/usr/bin/env bash
# bash completes dtctl's command line: completion.sh DTCTL SCRIPT
set -u
dtctl=$1
cd "$(mktemp -d)" || exit 1
trap 'rm -r "$PWD"' EXIT
touch visit.pcap
# shellcheck source=/dev/null
. "$2"
failed=0

# What completes the last word of a command line.
expect() {
    local wanted=$1
    shift
    COMP_WORDS=("$dtctl" "$@")
    COMP_CWORD=$#
    _dtctl "$dtctl" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
    [ "${COMPREPLY[*]}" = "$wanted" ] && return
    echo "dtctl $*: ${COMPREPLY[*]} instead of $wanted"
    failed=1
}

expect "collect selftest decode fcm config --help --version" ""
expect "collect config" co
expect "--device --device-port" collect --dev
expect "--help --html" fcm --h
expect "--watch" collect --device pump --w
expect "visit.pcap" decode vi
expect "visit.pcap" decode --json vi
expect "visit.pcap" collect --output vi
expect "" collect --timeout vi
exit $failed
