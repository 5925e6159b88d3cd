#!/usr/bin/env bash
# Installs the library below a prefix, and builds the example programs there as a host would: with
# cc and pkg-config, and with CMake; shared and static. Each program must run.
# usage: check_prefix.sh ROOT BUILD
set -eu
root=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

# It may be moved afterwards.
mv "$prefix" "$work/moved"
prefix=$work/moved
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vellib.pc)")
export PKG_CONFIG_PATH
libdir=$(pkg-config --variable=libdir vellib)

for header in "$root"/include/vellib/*.h; do
    [ -e "$prefix/include/vellib/$(basename "$header")" ] || { echo "$header is not installed"; exit 1; }
done

for source in "$root"/examples/*.c; do
    name=$(basename "$source" .c)
    warnings='-std=c99 -pedantic -Wall -Wextra -Werror -D_POSIX_C_SOURCE=200809L'
    # shellcheck disable=SC2046,SC2086
    cc $warnings -o "$work/$name" "$source" $(pkg-config --cflags --libs vellib)
    LD_LIBRARY_PATH=$libdir "$work/$name" --version >/dev/null
    # shellcheck disable=SC2046,SC2086
    cc $warnings -o "$work/$name-static" "$source" $(pkg-config --cflags vellib) "$libdir/libvellib.a" \
        $(pkg-config --libs-only-other --static vellib)
    "$work/$name-static" --version >/dev/null
    ldd "$work/$name-static" | grep -E 'vellib|stdc\+\+' && { echo "$name-static is not static"; exit 1; }
done

# The first program of the README compiles as it stands there, and says why it fails.
sed -n '/^```c$/,/^```$/{/^```/d;p}' "$root/README.md" >"$work/first.c"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror "$work/first.c" $(pkg-config --cflags --libs vellib) -o "$work/first"
(cd "$work" && LD_LIBRARY_PATH=$libdir ./first 2>first.log | grep -qxE '[a-z ]+' && grep -q 'net/' first.log) ||
    { echo 'the first program of the README does not do what it says'; exit 1; }

for kind in OFF ON; do
    cmake -S "$root/examples" -B "$work/cmake-$kind" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DVEL_EXAMPLES_STATIC=$kind >/dev/null
    cmake --build "$work/cmake-$kind" >/dev/null
    for source in "$root"/examples/*.c; do
        "$work/cmake-$kind/$(basename "$source" .c)" --version >/dev/null
    done
done
echo 'the examples build and run from an installed prefix'
