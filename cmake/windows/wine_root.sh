#!/usr/bin/env bash
# An i386 root with Wine, outside the checkout and used by all checkouts of this user: Debian's 32-bit Wine often cannot
# be installed beside amd64 packages that are a step ahead. Made once, in about a minute.
#
# usage: wine_root.sh            makes it where it is not there
#        wine_root.sh --where    prints where it is or would be (KORVANE_WINE_ROOT, else the user's cache)
set -euo pipefail

root=${KORVANE_WINE_ROOT:-${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/korvane/wine-i386}

die() {
    printf 'wine_root.sh: %s\n' "$*" >&2
    exit 1
}

# Prints the mirror and the suite that the machine's own Debian uses.
mirror() {
    apt-get indextargets --format '$(CREATED_BY) $(REPO_URI) $(CODENAME) $(COMPONENT) $(ORIGIN)' |
        sed -n 's/^Packages \([^ ]*\) \([a-z]*\) main Debian$/\1 \2/p' | head -n 1
}

# Wine's prefix is made here, once, without the parts that Wine would offer to download.
make_prefix() {
    mount --bind /proc "$1/proc"
    mount --bind /dev "$1/dev"
    env HOME=/root WINEPREFIX=/prefix WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' \
        chroot "$1" sh -c 'wine wineboot --init && wineserver --wait && ln -sfn /mnt /prefix/dosdevices/z:'
}

case ${1:-} in
--where)
    printf '%s\n' "$root"
    exit
    ;;
--make-prefix)
    make_prefix "$2"
    exit
    ;;
esac

[ -e "$root/complete" ] && exit
[ "$(id -u)" -eq 0 ] || die "making the root at $root needs root rights (debootstrap, mount); \
or name a Wine that runs 32-bit programs in KORVANE_WINE"
read -r uri suite <<<"$(mirror)"
[ -n "${suite:-}" ] || die "this machine lists no Debian repository (apt-get update?)"

fresh=$root.$$
trap 'rm -rf --one-file-system "$fresh"' EXIT
mkdir -p "$(dirname "$root")"
debootstrap --arch=i386 --variant=minbase --include=wine,wine32 "$suite" "$fresh" "$uri" >"$root.log" 2>&1 ||
    die "debootstrap failed: $(tail -n 3 "$root.log")"
unshare --mount "${BASH_SOURCE[0]}" --make-prefix "$fresh" >>"$root.log" 2>&1 ||
    die "Wine does not start: $(tail -n 3 "$root.log")"
printf '127.0.0.1 localhost\n' >"$fresh/etc/hosts" # debootstrap leaves that to an installer
rm -rf --one-file-system "$fresh/var/cache/apt" "$root" # an unfinished one of an earlier run
mv "$fresh" "$root"
touch "$root/complete"
