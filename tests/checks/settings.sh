#!/usr/bin/env bash
# Settings files that cannot be served are refused with file and line: settings.sh DTCTL
set -u
dtctl=$1
failed=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A file of this name and content ends dtctl with the status 5 and a line that holds a text.
refuses() {
    local said
    printf '%s' "$3" >"$work/$1"
    said=$(timeout 60 "$dtctl" config --port 0 "$work/$1" 2>&1)
    [ $? = 5 ] && [[ $said == "dtctl: $work/$1: $2"* ]] && [ "$(wc -l <<<"$said")" = 1 ] && return
    echo "$1: ${said:0:300} instead of $2: ${3:0:300}"
    failed=1
}

# What no device can ask for, and what breaks the format.
long=$(printf 'g%.0s' {1..989})
ini() { refuses x.ini "line 2: $1" $'a = 1\n'"$2"; }
toml() { refuses x.toml "line 2: $1" $'a = 1\n'"$2"; }
ini "a group without ]" "[b"
ini "neither [group] nor key = value" "b"
ini "no key" "= 2"
ini "set for the second time" "a = 2"
ini "a blank in a key" "b c = 2"
ini "a blank in a group" "[b c]"
ini "a group of more than 988 bytes" "[$long]"
ini "a key of more than 988 bytes" "$long = 1"
toml "Error" "b = "
toml "b: an array" "b = [1]"
toml "b c: a blank in a group" "['b c']"
toml "c d: a blank in a key" "b.'c d' = 1"
toml "b: a zero byte" 'b = "\u0000"'
toml "b\\x00: a zero byte" '"b\u0000" = 1'
toml "$long: a group of more than 988 bytes" "$long.b = 1"
refuses x.toml "line 3: d: set for the second time" $'a = 1\nb.c.d = 2\n"b.c".d = 1'

# Names and values within each other make a parser recurse. What only looks like them, in strings
# and comments, does not count, nor hide what comes behind it.
dots=$(printf '.%.0s' {1..40})
open=$(printf '[%.0s' {1..40})
names=$(printf 'a.%.0s' {1..32})
legal=$(sed "s/DOTS/$dots/g; s/OPEN/$open/g; s/LONG/$long$long/; s/FLOATS/${dots//./3.5, }/; s/BLANKS/$(printf '%1000s' '')/g" <<'END'
e.b.c = 1.5 # DOTS OPEN """
  [ a . b . c ] # '''
[[a."DOTSOPEN"]]
BLANKS"a.\"OPEN"BLANKS= "\\"
x = ['OPEN\', 'OPEN']
y = [{z = "DOTS\"OPEN", a = 1.5}, 2.5, # OPEN "
 [FLOATS 3, "LONG"]]
z = ["""
DOTSOPEN\"""OPEN""""", "OPEN"]
w = ['''''OPEN''''', 'OPEN']
v = ["", '', """""", '''''', "LONG"]
END
)
for line in "${names}b = 1" "[${names}b]" "${names//a/\"\"}'' = 1" "b = {c.$names = 1}"; do
    refuses deep.toml "line 12: a name of more than 32 parts" "$legal"$'\n'"$line"
done
for line in "$long${long}1 = 2" "[[ a.$long$long]]"; do
    refuses deep.toml "line 12: a name of more than 1000 bytes" "$legal"$'\n'"$line"
done
for line in "b = $open" "b = $(printf '{c=[%.0s' {1..17})"; do
    refuses deep.toml "line 12: arrays and inline tables more than 32 deep" "$legal"$'\n'"$line"
done
toml "Error" 'b = "it ends here'$'\n"'"$names"
refuses deep.toml "line 3: $dots$open: an array" "$legal" # now the parser has read it all
refuses large.toml "more than 1024 KiB of TOML" "$(printf '#%1048576s' '')"

# Without room for its log the server goes on, and says so once.
"$dtctl" config --port 0 /dev/null 2>"$work/said" >/dev/full &
for _ in {1..600}; do [ -s "$work/said" ] || sleep 0.1; done
kill -INT $!
wait $!
ended="$? $(cat "$work/said")"
[[ $ended == "0 dtctl: cannot write the output: No space left on device; the server goes on without a log" ]] ||
    { echo "a full disk: $ended" && failed=1; }
exit $failed
