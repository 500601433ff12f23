#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks the Debian packages of a folder as a user's machine would: they install into a clean root, the
# programs in them find what they need, consumers build against them, and lintian has nothing to say.
#
#   check.sh FOLDER SOURCE
set -euo pipefail
folder=$(readlink -f "$1") source=$(readlink -f "$2")
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

step() { echo "package: $*"; }

step 'extracting into a clean root'
for package in "$folder"/*.deb; do dpkg-deb --extract "$package" "$root"; done
lib=$(dirname "$(find "$root" -name 'libtarnutil.so.1')")

step 'the exported names are those of the symbols file'
(cd "$root" && mkdir -p debian && touch debian/control &&
    dpkg-gensymbols -c4 -plibtarnutil1 -v1.0.0 -e"$lib/libtarnutil.so.1" \
        -I"$folder/package/symbols" -O/dev/null)

step 'every library is found'
needed=$(LD_LIBRARY_PATH=$lib ldd "$root/usr/bin/tarnutil" "$lib/libtarnutil.so.1")
if grep 'not found' <<<"$needed"; then exit 1; fi
version=$(LD_LIBRARY_PATH=$lib "$root/usr/bin/tarnutil" --version)
[ "$version" = 'tarnutil 1.0.0' ] || { echo "the command says it is $version"; exit 1; }

step 'a consumer builds with CMake'
cmake -S "$source/tests/interface/consumer" -B "$root/consumer" -DHOW=package \
    -DCMAKE_PREFIX_PATH="$root/usr" >"$root/log" 2>&1 && cmake --build "$root/consumer" >>"$root/log" 2>&1 ||
    { cat "$root/log"; exit 1; }
"$root/consumer/consumer" || { echo 'the consumer fails'; exit 1; }

step 'a consumer builds with pkg-config'
# shellcheck disable=SC2046  # pkg-config prints words
PKG_CONFIG_PATH=$lib/pkgconfig c++ -std=c++11 "$source/tests/interface/consumer/main.cpp" \
    -o "$root/consumer-pc" $(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config \
        --cflags --libs libtarnutil)
LD_LIBRARY_PATH=$lib "$root/consumer-pc"

step 'lintian'
lintian --allow-root --fail-on error,warning --suppress-tags-from-file \
    "$source/tests/package/lintian-suppressed" "$folder"/*.deb
