#!/bin/sh
# The library needs libc and nothing else: needs.sh READELF LIBRARY
set -u
needed=$("$1" -d "$2" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
[ "$needed" = "libc.so.6" ] && exit 0
echo "needs: $needed"
exit 1
