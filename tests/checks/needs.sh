#!/bin/sh
# The library needs libc, with the loader that belongs to it, and nothing else: needs.sh READELF LIBRARY
set -u
case $("$1" -h "$2" | sed -n 's/^ *Machine: *//p') in
*X86-64) loader=ld-linux-x86-64.so.2 ;;
*80386 | ARM) loader='ld-linux(-armhf)?\.so\.[23]' ;;
AArch64) loader=ld-linux-aarch64.so.1 ;;
RISC-V) loader='ld-linux-riscv64-lp64d?\.so\.1' ;;
*) loader=none ;;
esac
needed=$("$1" -d "$2" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
others=$(printf '%s\n' "$needed" | grep -vxE "libc\.so\.6|$loader")
[ -z "$others" ] && [ -n "$needed" ] && exit 0
echo "needs: ${others:-nothing}"
exit 1
