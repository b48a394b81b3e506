#!/usr/bin/env bash
# What ./dt cannot do it says in one line, without escape sequences: commands.sh
set -u
cd "$(dirname "$(readlink -f "$0")")/../.." || exit 1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# Fails, and its last line is the only one of ./dt's own; headings of what it tries may come before.
refuses() {
    local text=$1 said
    shift
    said=$(timeout 60 "$@" 2>&1) && said="$said (it succeeded)"
    said=$(grep -v '^== \|^$' <<<"$said")
    [[ $said == "./dt: "*"$text"* && $said != *$'\n'* && $said != *$'\033'* ]] && return
    echo "$*: $said"
    failed=1
}

refuses "no command 'nonsense'" ./dt nonsense
refuses "a number of minutes, not 'abc'" ./dt soak abc
refuses "a number of seconds, not '-1'" ./dt fuzz -1
refuses "no preset 'nope'" ./dt build nope
refuses "no set-up for 'nope'" ./dt setup nope

# A machine with a shell and little else, and one whose sources cannot be written to.
mkdir "$work/bin"
for program in bash env readlink dirname mkdir printf; do
    ln -s "$(type -P $program)" "$work/bin/$program"
done
refuses "missing here: cmake ninja g++" env PATH="$work/bin" ./dt test
refuses "there is no dpkg" env PATH="$work/bin" ./dt package
cp dt "$work/dt"
# shellcheck disable=SC2016
refuses "cannot write into" unshare -rm sh -c \
    'mount --bind "$1" "$1" && mount -o remount,ro,bind "$1" && exec "$1/dt" test' - "$work"

# Headings are bold on a terminal, unless the user or the terminal is against it.
printf '#!/bin/sh\nprintf installed\n' >"$work/bin/dpkg-query"
chmod +x "$work/bin/dpkg-query"
ln -s "$(type -P grep)" "$(type -P tail)" "$(type -P id)" "$work/bin"
bold() {
    env -u NO_COLOR PATH="$work/bin" "$@" "$(type -P script)" -qec "./dt build dev" /dev/null | grep -c $'\033'
}
colours="$(bold TERM=xterm) $(bold TERM=dumb) $(bold TERM=xterm NO_COLOR=1)"
[ "$colours" = "1 0 0" ] || { echo "colours: $colours" && failed=1; }
exit $failed
