#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, then builds a small program
# against that tree alone, once through the CMake package and once through
# pkg-config, and runs both.
set -euo pipefail
build=$(cd "$1" && pwd)
flags_extra=${2:-}
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in bin/kxsim bin/kxapi include/KXServerApi/KXUtils.h; do
  [ -e "$prefix/$f" ] || { echo "not installed: $f" >&2; exit 1; }
done

cmake -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags_extra" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

pcdir=$(dirname "$(find "$prefix" -name kxserverapi.pc)")
flags=$(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs kxserverapi)
libdir=$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=libdir kxserverapi)
g++ -std=c++17 $flags_extra "$here/consumer.cpp" $flags -o "$work/consumer-pc"
LD_LIBRARY_PATH="$libdir" "$work/consumer-pc"
"$prefix/bin/kxapi" --help >/dev/null
