#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the consumer program in one of the ways a user can.
#
#   consumer.sh package    SOURCE BUILD   from a prefix that BUILD is installed into
#   consumer.sh pkg-config SOURCE BUILD   the same, without CMake
#   consumer.sh subproject SOURCE BUILD   with SOURCE as a part of its own tree
#   consumer.sh fetch      SOURCE BUILD   with SOURCE as fetched content
set -euo pipefail
how=$1 source=$2 build=$3
here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

install_library() { cmake --install "$build" --prefix "$work/prefix" >/dev/null; }

run_cmake_consumer() {
    cmake -G Ninja -S "$here/consumer" -B "$work/consumer" -DCMAKE_BUILD_TYPE=Release \
        -DHOW="$how" -DSOURCE="$source" -DCMAKE_PREFIX_PATH="$work/prefix" >"$work/log" ||
        { cat "$work/log"; exit 1; }
    cmake --build "$work/consumer" >"$work/log" || { cat "$work/log"; exit 1; }
    "$work/consumer/consumer"
}

case $how in
    package)
        install_library
        ls "$work"/prefix/share/tarnutil/suppressions/tarnutil.{lsan,valgrind}.supp >/dev/null
        run_cmake_consumer
        ;;
    pkg-config)
        install_library
        lib=$(dirname "$(find "$work/prefix" -name libtarnutil.so)")
        export PKG_CONFIG_PATH=$lib/pkgconfig
        # shellcheck disable=SC2046  # pkg-config prints words
        c++ -std=c++11 -fvisibility=hidden "$here/consumer/main.cpp" -o "$work/consumer" \
            $(pkg-config --cflags --libs libtarnutil)
        LD_LIBRARY_PATH=$lib "$work/consumer"
        ;;
    subproject)
        run_cmake_consumer
        cmake --install "$work/consumer" --prefix "$work/prefix" >/dev/null
        find "$work/prefix" -name libtarnutil.so.1 | grep -q . ||
            { echo 'the library was asked for and is not installed'; exit 1; }
        ;;
    fetch)
        run_cmake_consumer
        cmake --install "$work/consumer" --prefix "$work/prefix" >/dev/null
        [ ! -e "$work/prefix" ] || { echo 'installed, though nobody asked:'; find "$work/prefix" -type f; exit 1; }
        ;;
esac
