#!/usr/bin/env bash
# The demonstration: host programs in C, built against an installed library, talk to each other.
# usage: demo.sh [URL]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build/demo
prefix=$work/prefix
say() { printf '\n==> %s\n' "$*"; }
die() { printf 'demo: %s\n' "$*" >&2; exit 1; }

quietly() { "$@" >>"$work/build.log" 2>&1 || { tail -n 30 "$work/build.log" >&2; die "failed: $*"; }; }

mkdir -p "$work"
: >"$work/build.log"
say "building the library and installing it below build/demo/prefix"
quietly cmake -S . -B "$work/library" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_C_FLAGS=-O2 \
    -DCMAKE_CXX_FLAGS=-O2 -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib
quietly cmake --build "$work/library"
quietly cmake --install "$work/library"
say "building the host programs against it"
quietly cmake -S examples -B "$work/programs" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_C_FLAGS=-O2 \
    -DCMAKE_PREFIX_PATH="$prefix"
quietly cmake --build "$work/programs"
velfetch=$work/programs/velfetch
velserve=$work/programs/velserve
veljson=$work/programs/veljson

if [ $# -gt 0 ]; then
    exec "$velfetch" "$@"
fi

site=$work/site
fetched=$work/fetched
rm -rf "$site" "$fetched"
mkdir -p "$site/pictures" "$fetched"
printf 'Served by velserve, fetched by velfetch.\n' >"$site/hello.txt"
printf '{"name": "velserve", "ports": [8080, 8081], "motto": {"en": "plain", "de": "schlicht"}}\n' \
    >"$site/about.json"
head -c 64M /dev/urandom >"$site/large.bin"
printf '<!DOCTYPE html><title>Pictures</title><p>No pictures yet.</p>\n' >"$site/pictures/index.html"

say "velserve serves build/demo/site on a free port of the loopback"
"$velserve" -a 127.0.0.1 -p 0 "$site" >"$work/velserve.out" 2>"$work/velserve.log" &
server=$!
trap 'kill "$server" 2>/dev/null || true' EXIT
for _ in $(seq 100); do
    base=$(sed -n 's|.*\(http://[^/]*\)/.*|\1|p' "$work/velserve.out")
    [ -n "$base" ] && break
    kill -0 "$server" 2>/dev/null || die "velserve ended: $(cat "$work/velserve.log")"
    sleep 0.05
done
[ -n "$base" ] || die 'velserve did not say where it listens'
echo "$base/"

# fetch EXPECTED-EXIT-CODE ARGUMENT...
fetch() {
    local expected=$1 code=0
    shift
    echo "\$ velfetch $*"
    "$velfetch" "$@" || code=$?
    [ "$code" -eq "$expected" ] || die "velfetch gave exit code $code, not $expected"
}

say 'a small file, to standard output'
fetch 0 "$base/hello.txt"
say 'a file of 64 MiB; with a progress bar where this is a terminal'
fetch 0 -o "$fetched/large.bin" "$base/large.bin"
say 'a directory without its slash: the server redirects'
fetch 0 "$base/pictures"
say 'a file that is not there: exit code 22'
fetch 22 -o "$fetched/none" "$base/none"
say 'a host that refuses: its own exit code and one line'
code=0
echo '$ velfetch http://127.0.0.1:1/'
"$velfetch" http://127.0.0.1:1/ || code=$?
[ "$code" -ne 0 ] && [ "$code" -ne 22 ] || die 'a refused connection must not succeed'

say 'the digests'
want=$(sha256sum <"$site/large.bin")
have=$(sha256sum <"$fetched/large.bin")
echo "served  $want"
echo "fetched $have"
[ "$want" = "$have" ] || die 'the fetched file differs'

say 'a JSON document: fetched, looked into and changed'
fetch 0 -o "$fetched/about.json" "$base/about.json"
# look EXPECTED-OUTPUT ARGUMENT...
look() {
    local expected=$1 printed
    shift
    echo "\$ veljson $*"
    printed=$("$veljson" "$@") || die "veljson gave exit code $?"
    echo "$printed"
    [ "$printed" = "$expected" ] || die "veljson did not print $expected"
}
cd "$fetched"
look $'motto\nname\nports' --keys about.json
look 8081 about.json ports '#' 1
look '[ 8080, 8081, 8082 ]' <("$veljson" --set 8082 about.json ports '#' 2) ports
look schlicht --raw about.json motto de
cd "$root"
say 'a document cut short: the reason, and exit code 1'
code=0
printf '{"name": "vel' | "$veljson" || code=$?
[ "$code" -eq 1 ] || die "veljson gave exit code $code, not 1"


say 'stopping the server with SIGTERM'
kill -TERM "$server"
wait "$server" || die "velserve ended with exit code $?"
trap - EXIT
echo 'velserve joined its threads and ended; its log:'
sed 's/^/    /' "$work/velserve.log" | tail -n 8
printf '\nThe demonstration is complete: library, three programs, %s bytes compared.\n' "$(stat -c %s "$site/large.bin")"
