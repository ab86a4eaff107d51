#!/bin/sh
# Installs the build into a temporary prefix, builds a small C consumer
# against it twice (through find_package(orvutil) and through pkg-config),
# and runs the installed orvadmin.
set -eu
build=$1; consumer=$2; flags=${3:-}; cc=${4:-cc}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" >/dev/null
cmake -S "$consumer" -B "$tmp/cmake-build" -DCMAKE_PREFIX_PATH="$tmp/prefix" -DCMAKE_C_COMPILER="$cc" \
      -DCMAKE_C_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$tmp/cmake-build" >/dev/null
LD_LIBRARY_PATH="$tmp/prefix/lib:$tmp/prefix/lib64:${LD_LIBRARY_PATH:-}" "$tmp/cmake-build/consumer"
libdir=$(ls -d "$tmp/prefix"/lib*/pkgconfig | head -1)
PKG_CONFIG_PATH="$libdir" "$cc" $flags -o "$tmp/consumer-pc" "$consumer/consumer.c" \
    $(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs orvutil)
LD_LIBRARY_PATH="$tmp/prefix/lib:$tmp/prefix/lib64:${LD_LIBRARY_PATH:-}" "$tmp/consumer-pc"
# The installed tool runs from its prefix without help from the loader's path.
out=$(echo version | env -u LD_LIBRARY_PATH "$tmp/prefix/bin/orvadmin" -c /dev/null)
case $out in
    "version = Orvane "*) ;;
    *) echo "installed orvadmin printed: $out"; exit 1 ;;
esac
echo "install and consume: ok"
