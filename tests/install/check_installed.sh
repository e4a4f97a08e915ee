#!/usr/bin/env bash
# Usage: check_installed.sh BUILD_DIR WORK_DIR HOST_SOURCE_DIR
set -euo pipefail
build=$1
work=$2
host=$3
rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" --component ondrel > "$work/install.log"
for f in include/ondrel.h lib/libondrel.so lib/pkgconfig/ondrel.pc lib/cmake/ondrel/ondrelConfig.cmake; do
  test -e "$prefix/$f" || { echo "missing $f"; exit 1; }
done
ls "$prefix"/lib/libondrel.so.4* > /dev/null

# find_package(ondrel)
cmake -S "$host" -B "$work/host-build" -DCMAKE_PREFIX_PATH="$prefix" > "$work/host-config.log"
cmake --build "$work/host-build" > "$work/host-build.log"
LD_LIBRARY_PATH="$prefix/lib" "$work/host-build/host"

# pkg-config
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
g++ -std=c++17 "$host/host.cpp" $(pkg-config --cflags --libs ondrel) -o "$work/host-pc"
LD_LIBRARY_PATH="$prefix/lib" "$work/host-pc"
echo "installed package: both hosts ran"
