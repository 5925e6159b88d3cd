#!/usr/bin/env bash
# Builds the Debian packages from what git would commit, lets lintian read them, installs them in a
# clean root file system, uses them there, and removes them again. The packages lie in build/packages,
# and the root in build/roots, where a second run finds it.
# usage: packages.sh [build|judge|use]...   all of them, if none is named
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
version=$(sed -n 's/^project(vellib VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
work=$root/build/packages
bare=$root/build/roots/bare # essential packages and nothing else
kit=$root/build/roots/kit   # and what programs are built with and manual pages are read with
kit_packages=gcc,g++,libc6-dev,make,cmake,pkg-config,man-db
say() { printf '==> %s\n' "$*"; }
die() { printf 'packages: %s\n' "$*" >&2; exit 1; }
quietly() { # LOG COMMAND...
    local log=$1
    shift
    "$@" >"$log" 2>&1 || { tail -n 30 "$log" >&2; die "failed: $* (all it said: $log)"; }
}

# ---- building ------------------------------------------------------------------------------------

build() {
    say 'building the packages, with the tests that a packager runs'
    rm -rf "$work"
    mkdir -p "$work/vellib-$version"
    git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$work/vellib-$version"
    (cd "$work/vellib-$version" && quietly "$work/build.log" dpkg-buildpackage --no-sign "-j$(nproc)")
    rm -r "$work/vellib-$version"
    local package
    for package in libvellib1 libvellib-dev vellib-doc vellib-tools; do
        compgen -G "$work/${package}_${version}_*.deb" >/dev/null || die "no package $package"
    done
    ls "$work"/*.deb
}

judge() {
    say 'lintian'
    lintian --allow-root --fail-on error,warning --tag-display-limit 0 "$work"/*.changes
}

# ---- the clean root ------------------------------------------------------------------------------

# Sources as the machine has them for Debian, which may be a mirror.
sources() {
    # shellcheck disable=SC2016 # apt-get expands them
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
        'Created-By: Packages' 'Origin: Debian' | sort -u
}

make_roots() {
    [ "$(cat "$kit.packages" 2>/dev/null)" = "$kit_packages" ] && [ -e "$kit" ] && [ -e "$bare" ] && return
    say 'making a clean root of Debian 12 (once)'
    rm -rf --one-file-system "$bare" "$kit" "$kit.new"
    mkdir -p "$(dirname "$kit")"
    local skip=() hidden='--exclude=./proc/* --exclude=./sys/* --exclude=./dev/*' # mounted meanwhile
    # A container may not be allowed to mount anything; the packages do not need it.
    unshare --mount true 2>/dev/null || skip=(--skip=check/canmount --skip=chroot/mount)
    sources >"$kit.list"
    quietly "$kit.log" mmdebstrap --mode=root --variant=minbase --format=directory "${skip[@]}" \
        --dpkgopt=force-unsafe-io "--include=$kit_packages" \
        --essential-hook="mkdir '$bare' && tar -C \"\$1\" -c --one-file-system $hidden . | tar -C '$bare' -x" \
        bookworm "$kit.new" "$kit.list"
    cp -a "$kit.new/dev/." "$bare/dev"
    mv "$kit.new" "$kit"
    echo "$kit_packages" >"$kit.packages"
}

inside() { # ROOT COMMAND...
    chroot "$1" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb LC_ALL=C.UTF-8 "${@:2}"
}

files_of() {
    find "$1" -path "$1/var/lib/dpkg" -prune -o -path "$1/var/log" -prune -o -path "$1/var/cache" -prune -o \
        -path "$1/tmp" -prune -o -printf '%P %l\n' | sort
    awk '/^Package:/ { name = $2 } /^Status:/ { print "package " name ": " $0 }' "$1/var/lib/dpkg/status"
}

# use ROOT PACKAGE... -- COMMAND...: installs, runs, removes, and compares the root with itself before.
# The root is thrown away unless all of that went well.
use() {
    local place=$1 archives=()
    shift
    while [ "$1" != -- ]; do archives+=("$work/$1"_*.deb); set -- "${@:2}"; done
    shift
    local names
    names=$(for archive in "${archives[@]}"; do basename "$archive" | cut -d_ -f1; done)
    mkdir -p "$place/tmp/packages"
    cp "${archives[@]}" "$place/tmp/packages"
    files_of "$place" >"$work/before"
    trap 'rm -rf --one-file-system "$bare" "$kit"' EXIT
    quietly "$work/install.log" inside "$place" sh -c 'dpkg --install /tmp/packages/*.deb'
    "$@" || die "failed in $(basename "$place"): $*"
    # shellcheck disable=SC2086
    quietly "$work/remove.log" inside "$place" dpkg --purge $names
    files_of "$place" >"$work/after"
    diff "$work/before" "$work/after" >&2 || die 'the removed packages leave this (> left, < missing)'
    rm -rf "$place/tmp/packages"
    trap - EXIT
}

run_tools() {
    local tool count=0
    for tool in "$bare"/usr/bin/vel*; do
        tool=$(basename "$tool")
        inside "$bare" "$tool" --version >/dev/null || return 1
        inside "$bare" "$tool" --help >/dev/null || return 1
        count=$((count + 1))
    done
    [ "$count" -gt 0 ] && echo "$count tools run with nothing but the essential packages"
}

run_installed() {
    cp debian/tests/installed "$kit/tmp/packages"
    inside "$kit" /tmp/packages/installed
}

use_in_clean_roots() {
    make_roots
    say 'installing, using and removing them in clean roots'
    use "$bare" libvellib1 vellib-tools -- run_tools
    use "$kit" libvellib1 libvellib-dev vellib-doc vellib-tools -- run_installed
}

# Who has not root, has sudo.
if [ $# -eq 0 ] && [ "$(id -u)" -eq 0 ]; then
    make_roots & # which waits for the network most of the time
    roots=$!
    trap 'wait' EXIT
    build
    judge
    wait "$roots" || die 'there is no clean root'
    set -- use
fi
[ $# -gt 0 ] || set -- build judge use
for part; do
    case $part in
    build) build ;;
    judge) judge ;;
    use) if [ "$(id -u)" -eq 0 ]; then use_in_clean_roots; else sudo bash tools/packages.sh use; fi ;;
    *) die "'$part' is none of: build, judge, use" ;;
    esac
done
