#!/usr/bin/env bash
# Builds the library in two directories of odd names, and compares the bytes.
# usage: check_same_bytes.sh ROOT
set -eu
root=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for name in 'a b' 'another/deep.path'; do
    mkdir -p "$work/$name"
    cp -r "$root/CMakeLists.txt" "$root/cmake" "$root/tools" "$root/src" "$root/include" "$work/$name"
    cmake -S "$work/$name" -B "$work/$name/out" -G Ninja -DCMAKE_BUILD_TYPE=None \
        -DCMAKE_CXX_FLAGS=-O1 >/dev/null
    cmake --build "$work/$name/out" -j "$(nproc)" --target vellib vellib_static >/dev/null
done
cmp "$work/a b/out/libvellib.so.1.0.0" "$work/another/deep.path/out/libvellib.so.1.0.0"
cmp "$work/a b/out/libvellib.a" "$work/another/deep.path/out/libvellib.a"
echo 'both libraries have the same bytes'
