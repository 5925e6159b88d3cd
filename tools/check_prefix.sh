#!/usr/bin/env bash
# Installs the library below a prefix, and builds the example programs there as a host would: with
# cc and pkg-config, and with CMake; shared and static. Each program must run.
# usage: check_prefix.sh ROOT BUILD
set -eu
root=$(realpath "$1") build=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

# Each file is of one component.
for component in runtime dev tools doc; do
    cmake --install "$build" --prefix "$work/parts" --component $component >/dev/null
done
diff -r "$prefix" "$work/parts" || { echo 'the components are not the whole'; exit 1; }

# It may be moved afterwards.
mv "$prefix" "$work/moved"
prefix=$work/moved

# What was installed can be removed.
cmake -D BUILD="$build" -P "$root/cmake/uninstall.cmake"
left=$(find "$work/parts" ! -type d -o -name 'vellib*')
[ -d "$work/parts/lib" ] && [ -z "$left" ] || { echo "uninstall leaves: $left"; exit 1; }

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vellib.pc)")
export PKG_CONFIG_PATH
libdir=$(pkg-config --variable=libdir vellib)

for header in "$root"/include/vellib/*.h; do
    [ -e "$prefix/include/vellib/$(basename "$header")" ] || { echo "$header is not installed"; exit 1; }
done

for page in man1/velini.1 man3/vel_json_parse.3 man3/VEL_ERROR_IO.3 man7/vellib-errors.7; do
    find "$prefix" -path "*/man/$page" | grep -q . || { echo "$page is not installed"; exit 1; }
done

for source in "$root"/examples/vel*.c; do
    name=$(basename "$source" .c)
    warnings='-std=c99 -pedantic -Wall -Wextra -Werror -D_POSIX_C_SOURCE=200809L'
    # shellcheck disable=SC2046,SC2086
    cc $warnings -o "$work/$name" "$source" "$root/examples/common.c" $(pkg-config --cflags --libs vellib)
    LD_LIBRARY_PATH=$libdir "$work/$name" --version >/dev/null
    # shellcheck disable=SC2046,SC2086
    cc $warnings -o "$work/$name-static" "$source" "$root/examples/common.c" \
        $(pkg-config --cflags vellib) "$libdir/libvellib.a" \
        $(pkg-config --libs-only-other --static vellib)
    "$work/$name-static" --version >/dev/null
    ldd "$work/$name-static" | grep -E 'vellib|stdc\+\+' && { echo "$name-static is not static"; exit 1; }
done

# The other way to move a prefix gives the same.
[ "$(pkg-config --cflags --libs --static vellib)" = \
    "$(pkg-config --define-prefix --cflags --libs --static vellib)" ] ||
    { echo 'vellib.pc differs with --define-prefix'; exit 1; }

# The installed programs find the library and their catalogues.
for source in "$root"/examples/vel*.c; do
    "$prefix/bin/$(basename "$source" .c)" --version >/dev/null
done
LC_ALL=de_DE.UTF-8 "$prefix/bin/velini" --help | grep -q '^Aufruf: velini' ||
    { echo 'the installed catalogues are not found'; exit 1; }

# The first program of the README compiles as it stands there, and says why it fails.
sed -n '/^```c$/,/^```$/{/^```/d;p}' "$root/README.md" >"$work/first.c"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror "$work/first.c" $(pkg-config --cflags --libs vellib) -o "$work/first"
(cd "$work" && LD_LIBRARY_PATH=$libdir ./first 2>first.log | grep -qxE '[a-z ]+' && grep -q 'net/' first.log) ||
    { echo 'the first program of the README does not do what it says'; exit 1; }

# A test program of a host, with the harness of the library: as it is, and then with each allocation
# driven to failure, in the way that docs/api.md tells. A leak fails a run too.
host() { LD_LIBRARY_PATH=$libdir "$work/host" "$@" >host.log 2>&1; }
# shellcheck disable=SC2046,SC2086
cc $warnings -rdynamic -fsanitize=leak -o "$work/host" "$root/tests/checks/host.c" \
    $(pkg-config --cflags --libs vellib)
mkdir "$work/plain" "$work/sweep"
cd "$work/plain"
host --output report.xml || { cat host.log; exit 1; }
grep -q '<testsuite name="host" hostname="localhost" tests="5" errors="0" failures="0"' report.xml ||
    { echo 'the report of the test program:'; cat report.xml; exit 1; }
cd "$work/sweep"
export VELMALLOC_FAILMODE=1
stacks=-1
touch velmallocfail.db
until [ "$(wc -l <velmallocfail.db)" = "$stacks" ]; do
    stacks=$(wc -l <velmallocfail.db)
    status=0
    host || status=$?
    [ "$status" -le 1 ] || { echo "with failing allocations the test program ended with $status:"; cat host.log; exit 1; }
done
unset VELMALLOC_FAILMODE
[ "$status" -eq 0 ] && [ "$stacks" -gt 40 ] ||
    { echo "the sweep ended after $stacks stacks with $status:"; cat host.log; exit 1; }
cd "$work"

# Finding the library leaves the variables of a host alone, and finds nothing that is not there.
mkdir "$work/find"
cat >"$work/find/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.16)
project(find LANGUAGES C)
set(PACKAGE_VERSION "the host's")
find_package(vellib 1.0 REQUIRED)
if(NOT PACKAGE_VERSION STREQUAL "the host's" OR DEFINED PACKAGE_VERSION_COMPATIBLE)
  message(FATAL_ERROR "find_package changed PACKAGE_VERSION to ${PACKAGE_VERSION}")
endif()
find_package(vellib 1.0 QUIET COMPONENTS none)
if(vellib_FOUND)
  message(FATAL_ERROR "find_package finds a component that there is not")
endif()
TEXT
cmake -S "$work/find" -B "$work/find/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null

# A host may have the tree within its own, and takes from it what it needs.
mkdir "$work/within"
cat >"$work/within/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.25)
project(within LANGUAGES C)
add_custom_target(uninstall)
add_subdirectory("$root" vellib EXCLUDE_FROM_ALL)
add_executable(program "$work/first.c")
target_link_libraries(program PRIVATE vellib::vellib)
TEXT
cmake -S "$work/within" -B "$work/within/build" >/dev/null

for kind in OFF ON; do
    cmake -S "$root/examples" -B "$work/cmake-$kind" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DVEL_EXAMPLES_STATIC=$kind >/dev/null
    cmake --build "$work/cmake-$kind" >/dev/null
    for source in "$root"/examples/vel*.c; do
        "$work/cmake-$kind/$(basename "$source" .c)" --version >/dev/null
    done
done
echo "the examples and a test program build and run from an installed prefix; $stacks stacks swept"
