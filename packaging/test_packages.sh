#!/usr/bin/env bash
# Installs Debian packages in a clean root, uses them there and removes them; as root:
# test_packages.sh PACKAGES WORK
# PACKAGES holds the .deb files. WORK keeps a root with the tools that programs are built with (debootstrap), of which
# each run takes a copy.
set -euo pipefail
packages=$(realpath "$1")
mkdir -p "$2"
work=$(realpath "$2")
source_tree=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
base=$work/base
root=$work/root

die() {
    echo "Packages: $*" >&2
    exit 1
}

# Without what may be mounted there.
remove_tree() {
    umount "$1/proc" 2>/dev/null || true
    umount "$1/sys" 2>/dev/null || true
    rm -rf --one-file-system "$1"
}

within() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 "$@"; }

if [[ ! -e $base.done ]]; then
    remove_tree "$base"
    debootstrap --variant=minbase --include=gcc,g++,cmake,make,pkg-config,man-db \
        "$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)" "$base" >"$work/debootstrap.log" 2>&1 ||
        die "debootstrap failed: $(tail -n 3 "$work/debootstrap.log")"
    touch "$base.done"
fi
remove_tree "$root"
cp -a "$base" "$root"
mkdir "$root/packages"
cp "$packages"/*.deb "$root/packages"
cp -r "$source_tree/tests/install" "$source_tree/samples" "$root/packages"

# What is missing is known: h264tool alone cannot be configured.
if dpkg --root="$root" -i "$root"/packages/h264tool_*.deb >"$work/log" 2>&1; then
    die "h264tool can be installed without its libraries"
fi
grep -q "h264tool depends on libh264-lib0" "$work/log" || die "$(cat "$work/log")"
dpkg --root="$root" --purge h264tool >"$work/log" 2>&1

dpkg --root="$root" -i "$root"/packages/*.deb >"$work/log" 2>&1 || die "$(cat "$work/log")"
within ldd /usr/bin/h264tool >"$work/ldd"
if grep -q "not found" "$work/ldd"; then die "$(cat "$work/ldd")"; fi
within h264tool --version
within h264tool dump --level 0 /packages/samples/progressive_422.h264 | tail -n 1 | grep -q "slice" ||
    die "h264tool dump does not work"
within sh /packages/install/use_installed.sh /packages/install/outside /tmp/outside
within mandb --quiet
for page in h264tool h264_lib; do within man --where "$page" >"$work/log" 2>&1 || die "no manual page $page"; done
# shellcheck disable=SC2016
completions=$(within bash -c 'source /usr/share/bash-completion/completions/h264tool
    COMP_WORDS=(h264tool summary --j) COMP_CWORD=2 && _h264tool && echo "${COMPREPLY[*]}"')
[[ $completions == --json ]] || die "completion gives '$completions'"

dpkg --root="$root" --purge h264tool libh264-lib-dev libh264-lib0 libdbgtrace0 >"$work/log" 2>&1 || die "$(cat "$work/log")"
left=$(find "$root/usr" "$root/etc" -name '*h264*' -o -name '*dbgtrace*')
[[ -z $left ]] || die "left behind: $left"
remove_tree "$root"
echo "Packages were installed, used and removed."
