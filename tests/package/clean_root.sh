#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages of a folder with apt in a fresh Debian 12, uses them there as a stranger
# would, and removes them again. Needs root, debootstrap and a Debian mirror (MIRROR, if not the usual).
#
#   clean_root.sh FOLDER SOURCE
set -euo pipefail
folder=$(readlink -f "$1") source=$(readlink -f "$2")
root=$(mktemp -d)
log=$root.log
# An interrupted debootstrap leaves /proc mounted in there.
remove_root() {
    ! mountpoint -q "$root/proc" || umount "$root/proc"
    rm -rf --one-file-system "$root" "$log"
}
trap remove_root EXIT

step() { echo "package: $*"; }
quietly() { "$@" >"$log" 2>&1 || { tail -n 40 "$log" >&2; exit 1; }; }
inside() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"; }
fail() { echo "package: $*" >&2; exit 1; }
files_of_ours() { inside find /usr /etc /var/lib/dpkg/info -name '*tarnutil*'; }

step 'making a fresh Debian 12'
quietly debootstrap --variant=minbase bookworm "$root" ${MIRROR:+"$MIRROR"}
[ -z "$(files_of_ours)" ] || fail 'files of ours are there already'

step 'apt installs the packages and what they depend on'
mkdir "$root/packages"
cp "$folder"/*.deb "$root/packages"
cp -r "$source/tests/interface/consumer" "$root/consumer"
quietly inside apt-get -q update
quietly inside sh -c 'apt-get -q install -y --no-install-recommends /packages/*.deb'

step 'the command runs, and its manual page and bill of materials are there'
[ "$(inside tarnutil --version)" = 'tarnutil 1.0.0' ] || fail 'the command says another version'
[ "$(inside tarnutil digest /etc/debian_version)" = "$(inside sha1sum /etc/debian_version)" ] ||
    fail 'the command makes another digest than sha1sum'
for file in man/man1/tarnutil.1.gz tarnutil/tarnutil.cdx.json tarnutil/libtarnutil.so.1.cdx.json; do
    [ -s "$root/usr/share/$file" ] || fail "missing: $file"
done

step 'a consumer builds with CMake and with pkg-config'
quietly inside apt-get -q install -y --no-install-recommends g++ cmake make pkg-config
quietly inside sh -ec 'cmake -S /consumer -B /build -DHOW=package && cmake --build /build && /build/consumer'
quietly inside sh -ec 'c++ -std=c++11 /consumer/main.cpp -o /consumer-pc $(pkg-config --cflags --libs libtarnutil) &&
    /consumer-pc'

step 'removing the packages leaves nothing behind'
quietly inside apt-get -q purge -y libtarnutil1 libtarnutil-dev libtarnutil-doc tarnutil-tools
left=$(files_of_ours)
[ -z "$left" ] || fail "left behind: $left"
