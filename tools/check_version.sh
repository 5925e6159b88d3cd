#!/usr/bin/env bash
# Checks that one version stands everywhere: in the build, the changelogs, the library and its package
# files, what the example programs say, and the list of symbols of the Debian package.
# usage: check_version.sh ROOT BUILD
set -u
root=$1 build=$2
version=$(sed -n 's/^project(vellib VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
major=${version%%.*}
status=0
same() { # WHAT HAS WANTED
    [ "$2" = "$3" ] || { echo "$1: '$2' instead of '$3'"; status=1; }
}

[[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || { echo "CMakeLists.txt names no version"; exit 1; }
same CHANGELOG.md "$(sed -n '0,/^## [0-9]/s/^## \([0-9.]*\).*/\1/p' "$root/CHANGELOG.md")" "$version"
same debian/changelog "$(sed -n '1s/^vellib (\([^)]*\)).*/\1/p' "$root/debian/changelog")" "$version"
same 'the name of the library' "$(basename "$(readlink -f "$build/libvellib.so")")" "libvellib.so.$version"
same 'the soname' "$(readelf -d "$build/libvellib.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')" "libvellib.so.$major"
same vellib.pc "$(sed -n 's/^Version: //p' "$build/vellib.pc")" "$version"
same 'the CMake package' \
    "$(sed -n 's/^set(PACKAGE_VERSION "\(.*\)")/\1/p' "$build/vellib-config-version.cmake")" "$version"
same 'the kept interface' "$(grep -o "soname='[^']*'" "$root"/abi/*.abi)" "soname='libvellib.so.$major'"
for program in "$root"/examples/vel*.c; do
    program=$(basename "$program" .c)
    same "$program --version" "$("$build/examples/$program" --version)" "$program $version"
done

# The Debian package lists each symbol with its node, and the version that brought it: none is newer
# than this one, and a node belongs to the versions that begin with its number.
symbols=$root/debian/libvellib1.symbols
same "$(basename "$symbols")" "$(head -n 1 "$symbols")" "libvellib.so.$major libvellib$major #MINVER#"
same "$(basename "$symbols")" "$(sed -n 's/^ \(vel_.*\)@.*/\1/p' "$symbols" | sort | cksum)" \
    "$(sort "$root/tools/exports.txt" | cksum)"
while read -r symbol since; do
    [[ $symbol == *@VELLIB_${since%.*} ]] || { echo "$symbol is not of $since"; status=1; }
    [ "$(printf '%s\n' "$since" "$version" | sort -V | tail -n 1)" = "$version" ] ||
        { echo "$symbol is newer than $version"; status=1; }
done < <(sed -n 's/^ //p' "$symbols")

[ $status -eq 0 ] && echo "$version, $(wc -l <"$root/tools/exports.txt") symbols"
exit $status
