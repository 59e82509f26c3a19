#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
# orv_packages.sh ROOT PACKAGE...: installs the packages under a folder that knows what this machine has installed, so
# that their dependencies must be there, and builds and runs the example with what they brought and nothing else.
set -euo pipefail
readonly root=$1
shift
tests=$(cd "$(dirname "$0")" && pwd)

mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers} "$root/var/log" "$root/stand-ins"
cp /var/lib/dpkg/status "$root/var/lib/dpkg/status"
touch "$root/var/lib/dpkg/available"
# The maintainer scripts call ldconfig, which is not to be the machine's.
printf '#!/bin/sh\n' >"$root/stand-ins/ldconfig"
chmod +x "$root/stand-ins/ldconfig"
PATH="$root/stand-ins:$PATH" dpkg --root="$root" --force-script-chrootless --no-triggers -i "$@"
# Building against the packages takes what they depend on, and nothing else that is here.
for package in "$@"; do
    echo "$(dpkg-deb -f "$package" Package): $(dpkg-deb -f "$package" Depends)"
done

lib=$(dirname "$(find "$root/usr/lib" -name 'liborv.so')")
export LD_LIBRARY_PATH=$lib
fail() {
    echo "$*" >&2
    exit 1
}
for file in "$root"/usr/bin/orv "$lib"/liborv.so.* "$lib"/liborv_debuginfod.so.*; do
    [[ $(readelf -d "$file") != *PATH* ]] || fail "$file has a path to libraries"
done
if grep -raF "$(cd "$tests/../.." && pwd)" "$root/usr"; then
    fail "a file names the build folder"
fi

cmake -S "$tests/../../examples/installed" -B "$root/build" -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
cmake --build "$root/build"
address=$(nm -D --defined-only "$lib/liborv.so" | awk '/toUString/ && !found++ { print $1 }')
answer=$("$root/build/orv_name_address" "$lib/liborv.so" "$address")
[[ $answer == "ORV_3_30::toUString(ORV_3_30::status_t)+0x0" ]] || fail "the example says $answer"
[[ $("$root/usr/bin/orv" --version) == "orv "* ]] || fail "orv does not start"
[[ $("$root/usr/bin/orv-addr2line" -fe "$lib/liborv.so" "$address") == *toUString* ]] || fail "orv-addr2line says something else"
said=$("$root/usr/bin/orv" info --debuginfod "$root/usr/bin/orv" 2>&1)
[[ $said != *"can't be loaded"* ]] || fail "no library for servers"
flags=$(PKG_CONFIG_LIBDIR="$lib/pkgconfig" pkg-config --cflags --libs orv_debuginfod)
[[ $flags == *-lorv_debuginfod* && $flags == *-lorv* ]] || fail "pkg-config says $flags"
echo "installed, and in use"
