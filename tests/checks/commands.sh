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

# Ctrl-C ends what runs beside the rest, too: here the tests of dev, while the next preset is built.
cp CMakePresets.json "$work"
cat >"$work/bin/cmake" <<'END'
#!/bin/sh
case "$*" in "--build --preset release-library") sleep 600 ;; esac
END
cat >"$work/bin/ctest" <<'END'
#!/bin/sh
sleep 600 &
echo $! >"${0%/bin/*}/pids.new" && mv "${0%/bin/*}/pids.new" "${0%/bin/*}/pids"
wait
END
chmod +x "$work/bin/cmake" "$work/bin/ctest"
ln -s "$(type -P sleep)" "$(type -P mv)" "$(type -P rm)" "$(type -P cat)" "$(type -P sed)" "$work/bin"
set -m
PATH="$work/bin" "$work/dt" test >"$work/told" 2>&1 &
set +m
for ((i = 0; i < 600; i++)); do [ ! -f "$work/pids" ] || break; sleep 0.1; done
kill -INT -- "-$!"
wait $!
status=$?
for ((i = 0; i < 100; i++)); do grep -qs sleep "/proc/$(<"$work/pids")/cmdline" || break; sleep 0.1; done
[ "$status" = 130 ] && [ "$i" -lt 100 ] || { echo "Ctrl-C: $status" && cat "$work/told" && failed=1; }
exit $failed
