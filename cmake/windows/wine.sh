#!/usr/bin/env bash
# Runs a Windows program under Wine, in the i386 root that wine_root.sh makes. Wine's drive Z: is this machine's "/", so
# absolute paths mean the same on both sides. Where the machine has a Wine of its own that runs 32-bit programs,
# KORVANE_WINE may name it.
#
# usage: wine.sh PROGRAM [ARGUMENT...]
#        wine.sh --start    keeps Wine's own server running, which spares each program a second or more
#        wine.sh --stop     ends it
set -euo pipefail

die() {
    printf 'wine.sh: %s\n' "$*" >&2
    exit 1
}

export WINEDEBUG=${WINEDEBUG:--all}
if [ -n "${KORVANE_WINE:-}" ]; then
    [[ ${1:-} == --st* ]] || exec "$KORVANE_WINE" "$@"
    exit
fi

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
root=$("$here/wine_root.sh" --where)
[ -e "$root/complete" ] || die "no Wine at $root (./dev test-windows puts it there)"
[ "$(id -u)" -eq 0 ] || die "mounting and changing the root needs root rights; or name your own Wine in KORVANE_WINE"

# Mounts in a name space of their own: they end with the program, and nothing that removes the root meets other files.
if [ "${KORVANE_WINE_MOUNTED:-}" != "$root" ]; then
    KORVANE_WINE_MOUNTED=$root exec unshare --mount "$here/wine.sh" "$@"
fi
if [ ! -e "$root/proc/self" ]; then
    mount --rbind / "$root/mnt"
    mount --bind /proc "$root/proc"
    mount --bind /dev "$root/dev"
fi

case ${1:-} in
--start)
    # Wine's services start with the first program, inherit its output, and would keep a pipe there open.
    exec </dev/null >/dev/null 2>&1
    WINEPREFIX=/prefix chroot "$root" wineserver --persistent || [ $? -eq 2 ] # 2: one is running
    set -- wineboot
    ;;
--stop)
    WINEPREFIX=/prefix chroot "$root" wineserver --kill || true # there may be none
    exit
    ;;
/*) set -- "Z:$1" "${@:2}" ;;
esac
export LC_ALL=C.UTF-8 # what Wine takes file names and arguments to be in
exec env HOME=/root WINEPREFIX=/prefix chroot "$root" /bin/sh -c 'cd "/mnt$0" && exec wine "$@"' "$PWD" "$@"
