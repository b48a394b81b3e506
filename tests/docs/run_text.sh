#!/usr/bin/env bash
# Runs a text's commands (run_text.py) as a reader would, from a fresh copy of the sources, in a
# root directory whose /usr/local and home are empty: unshare -nm tests/docs/run_text.sh TEXT
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(mktemp -d)
trap 'umount -l "$root" 2>/dev/null; rmdir "$root"' EXIT
mount -t tmpfs tmpfs "$root"

for dir in /usr /lib /lib32 /lib64 /libx32 /bin /sbin /var /proc /dev; do
    if [ -L "$dir" ]; then
        cp -a "$dir" "$root$dir"
    elif [ -d "$dir" ]; then
        mkdir "$root$dir"
        mount --rbind "$dir" "$root$dir"
    fi
done
mount -t tmpfs tmpfs "$root/usr/local"
mkdir -p "$root/tmp" "$root/root" "$root$PWD/build" build
cp -a /etc "$root" 2>/dev/null || true # what may be read
git ls-files -coz --exclude-standard | xargs -0 cp -p --parents -t "$root$PWD"
mount --bind build "$root$PWD/build" # what is built already need not be built again

ip link set lo up
# Processes of its own, so that none is left over.
unshare -pf --kill-child env -i HOME=/root LC_ALL=C.UTF-8 \
    PATH=/usr/local/bin:/usr/local/sbin:/usr/bin:/usr/sbin:/bin:/sbin chroot "$root" \
    sh -c 'cd "$1" && exec python3 tests/docs/run_text.py "$2"' - "$PWD" "$1"
