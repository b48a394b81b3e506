#!/usr/bin/env bash
# Help is whole, and every wrong call ends with one line and its status: usage.sh DTCTL VERSION
set -u
dtctl=$1
failed=0

# Ends with a status; standard error is one line that holds a text.
refuses() {
    local status=$1 text=$2 said
    shift 2
    said=$(timeout 20 "$dtctl" "$@" 2>&1 >/dev/null)
    [ $? = "$status" ] && [[ $said == "dtctl: "*"$text"* ]] && [ "$(wc -l <<<"$said")" = 1 ] && return
    echo "dtctl $*: $said"
    failed=1
}

for command in "" collect selftest decode fcm config; do
    # shellcheck disable=SC2086
    help=$("$dtctl" $command --help) && [[ $help == *Examples:*"Exit status:"* ]] && continue
    echo "dtctl $command --help lacks something"
    failed=1
done
[ "$("$dtctl" --version)" = "dtctl $2" ] || { echo "no version $2" && failed=1; }

# A wrong command line is told with the option or command that was perhaps meant, and where to read on.
misled() { refuses 2 "$1" "${@:2}"; }
misled "a command is missing (see dtctl --help)"
misled "there is no command 'colect'; did you mean collect? (see dtctl --help)" colect --device 127.0.0.1
misled "there is no command 'SELF'; did you mean selftest? (see dtctl --help)" help SELF
misled "there is no command '' (see dtctl --help)" "" --help
misled "there is no option --jsno in front of the command (see dtctl fcm --help)" --jsno fcm x
misled "there is no option --hlep; did you mean --help? (see dtctl --help)" --hlep
misled "there is no option --tmeout; did you mean --timeout? (see dtctl collect --help)" collect --tmeout=3
misled "there is no option --ouptut; did you mean --output? (see dtctl fcm --help)" fcm a --ouptut x --jsn
misled "there is no option --port; did you mean --device-port? (see dtctl selftest --help)" selftest --port 3
misled "there is no option -p; did you mean --port? (see dtctl config --help)" config -p 3 x
misled "there is no option -t; did you mean --times? (see dtctl collect --help)" collect -t
misled "there is no option --verbatim (see dtctl decode --help)" decode --verbatim x
misled "too many arguments: 'c' 'b' '--json' (see dtctl fcm --help)" fcm a c b -- --json
misled "FILE is required (see dtctl decode --help)" decode
misled "--device is required (see dtctl collect --help)" collect pump
misled "--bind needs a value (see dtctl config --help)" config --bind
misled "--bind is given more than once" config --bind a --bind b x
misled "--json cannot be perhaps" fcm --json=perhaps x
misled "--output: '' names no file" fcm x --output ""
misled "--watch: 'nan' is not a number" collect --device 127.0.0.1 --watch nan
while read -r command option value range; do
    misled "$option: $value is not within $range" $command "$option" "$value" x
done <<'END'
collect --device-port 0 1 to 65535
collect --listen 65536 0 to 65535
collect --sequence -1 0 to 2147483647
collect --timeout 0 0.1 to 86400
collect --deadline 0 0.1 to 604800
collect --resend 101 0 to 100
collect --max-value 0 1 to 2047
collect --command 3 0 to 2
collect --watch 604801 0.1 to 604800
decode --max-value 0 1 to 2047
config --port 65536 0 to 65535
END
misled "--html" fcm --html --json /dev/null
[ "$("$dtctl" help fcm)" = "$("$dtctl" fcm --help)" ] && [ "$("$dtctl" help)" = "$("$dtctl" --help)" ] ||
    { echo "dtctl help fails" && failed=1; }
"$dtctl" help >/dev/full 2>/dev/null && echo "help that is lost" && failed=1

refuses 1 "cannot read ''" decode ""
refuses 5 "$0 does not look like a fault log: byte " fcm "$0"
refuses 1 "cannot read /nowhere: No such" fcm /nowhere
refuses 1 "cannot read /: Is a directory" fcm /
refuses 1 "cannot read /: Is a directory" decode /
refuses 1 "cannot read /nowhere" config /nowhere
refuses 1 "cannot read /dev/zero: File too large" config /dev/zero
refuses 4 "192.0.2.1" config --bind 192.0.2.1 --port 0 /dev/null
refuses 1 "cannot write /nowhere/x" fcm /dev/null --output /nowhere/x
refuses 4 "no IPv4 address" collect --device ...
refuses 5 "end mark" fcm --html /dev/null

# Headings are bold on a terminal, unless the user or the terminal is against it. A file is written
# anew, but not the one to be read, nor without it.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
log=$work/fcm.log
printf '\x18\0run pump 11/16 19:00:10 \x10\0run pump started\0\0' >"$log"

bold() { env -u NO_COLOR "$@" script -qec "'$dtctl' fcm '$log'" /dev/null | grep -c $'\033\[1mlog'; }

colours="$(bold TERM=xterm) $(bold TERM=dumb) $(bold TERM=xterm NO_COLOR=1)"
[ "$colours" = "1 0 0" ] || { echo "colours: $colours" && failed=1; }
refuses 1 "cannot write the output" fcm "$log" --output /dev/full
ln -s "$log" "$work/link"
refuses 1 "link: it is the file to be read" fcm "$log" --output "$work/link"
refuses 1 "it is the file to be read" fcm - --output "$log" <"$log"
refuses 1 "cannot read /nowhere: No such" fcm /nowhere --output "$log"
printf old >"$work/out"
refuses 4 "does not answer" collect --device 127.0.0.1 --device-port 1 --output "$work/out"
[ "$(cat "$work/out")" = old ] || { echo "a device that is not there costs a file" && failed=1; }
for format in --html --csv; do "$dtctl" fcm "$log" $format --output "$work/out"; done
"$dtctl" fcm "$log" --csv | cmp - "$work/out" || failed=1

# Whether a file that breaks off was a fault log at all.
looks() {
    printf '%b' "$2" >"$work/looks"
    refuses 5 "$1: byte " fcm "$work/looks"
}
looks "/looks" '\x18\0run pump'
looks "/looks" '\x18\0log'
looks "/looks" '\0\0\x17\0\x17\x06pump'
for bytes in '\x18\0ran pump' '\x18\0run\tpump' '\0\x01\x17\0\x17\x06' '\0\0\x17\0\x18\x06' '\0\0\x17\0\0\x06' \
    '\0\0\0\x18ftypmp42' '\0\0\x17\0\x17\x07pump'; do
    looks "/looks does not look like a fault log" "$bytes"
done

# What is left of a cut file is shown before the failure.
head -c 31 "$log" >"$work/cut"
refuses 5 "cut: byte 31: the file ends inside the entry that begins at byte 26" fcm "$work/cut"
shown=$("$dtctl" fcm "$work/cut" --csv 2>/dev/null | tail -n 1)
[ "$shown" = "run,pump,11/16 19:00:10,,," ] || { echo "of a cut file: $shown" && failed=1; }
exit $failed
