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
    _dt "$dtctl" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
    [ "${COMPREPLY[*]}" = "$wanted" ] && return
    echo "dtctl $*: ${COMPREPLY[*]} instead of $wanted"
    failed=1
}

expect "collect selftest decode fcm config help --help --version" ""
expect "collect config" co
expect "collect config" help co
expect "" help collect ""
expect "--device --device-port" collect --dev
expect "--help --html" fcm --h
expect "--watch" collect --device pump --w

# Files where a file fits, and nowhere else.
for line in "decode vi" "decode --json vi" "fcm --output x vi" "fcm --output=x vi" "collect --output vi" \
    "collect --output = vi" "config --port 0 vi"; do
    # shellcheck disable=SC2086
    expect "visit.pcap" ${line/=x/ = x}
done
for line in "collect vi" "collect --timeout vi" "decode x vi" "config --port vi" "config --port = vi" "vi"; do
    # shellcheck disable=SC2086
    expect "" $line
done

# Every option of every command.
for command in collect selftest decode fcm config; do
    listed=$("$dtctl" $command --help |
        sed -nE '/^Options:/,/^$/s/^  (-h,)?(--[a-z-]+).*/\2/p')
    expect "$(xargs <<<"$listed")" $command -
done
exit $failed
