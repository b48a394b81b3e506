#!/bin/sh
# A shipped library or program is protected as cmake/harden.cmake says: hardened.sh READELF FILE
# Probes against stack clash show in frames of a page and more alone; libdt's are smaller (./dt size).
set -u
failed=0
lacks() {
    echo "$2: $1"
    failed=1
}

headers=$("$1" -Wl "$2")
dynamic=$("$1" -Wd "$2")
symbols=$("$1" -W --dyn-syms "$2" | awk '$7 == "UND" { sub(/@.*/, "", $8); print $8 }')

echo "$headers" | grep -q GNU_RELRO || lacks "no addresses are sealed at load (relro)" "$2"
echo "$dynamic" | grep -Eq 'BIND_NOW|FLAGS.* NOW' || lacks "addresses are not bound at load (now)" "$2"
echo "$dynamic" | grep -q TEXTREL && lacks "code is changed at load (text relocations)" "$2"
echo "$headers" | grep -q 'GNU_STACK.* RW ' || lacks "the stack is executable" "$2"
echo "$symbols" | grep -qx __stack_chk_fail || lacks "no stack protector" "$2"
echo "$symbols" | grep -v __stack_chk_fail | grep -q '_chk$' || lacks "no fortified call of libc" "$2"
# Marks at all places that may be jumped to; the file's own mark also needs a libc that has them.
if "$1" -h "$2" | grep -q X86-64; then
    [ "$(objdump -d "$2" | grep -c endbr64)" -gt 100 ] || lacks "no control-flow protection (CET)" "$2"
fi

# Where a caller's format is used, %n works as it does in vsprintf.
case $2 in
*libdt.so*)
    echo "$symbols" | grep '^__v.*printf_chk$' && lacks "a caller's format is checked" "$2"
    echo "$symbols" | grep -qx vsnprintf || lacks "no plain vsnprintf" "$2"
    ;;
esac
exit $failed
