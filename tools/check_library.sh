#!/usr/bin/env bash
# Checks what the built shared library shows and needs.
# usage: check_library.sh ROOT LIBRARY ARCHIVE
set -u
root=$1 library=$2 archive=$3
status=0
fault() { echo "$*"; status=1; }

# Exactly the listed symbols, all in one version node.
have=$(nm -D --defined-only --with-symbol-versions "$library" | awk '$2 != "A" { print $3 }' | sort)
want=$(sed 's/$/@@VELLIB_1.0/' "$root/tools/exports.txt" | sort)
[ "$have" = "$want" ] || fault "exported symbols differ from tools/exports.txt (< exported, > listed):
$(diff <(echo "$have") <(echo "$want"))"
sort -c -u "$root/tools/exports.txt" || fault 'tools/exports.txt is not sorted'

# Every listed function is declared in a public header, and the other way round.
declared=$(grep -hoE '\bvel_[a-z0-9_]+(\[[A-Z0-9_]+\])?(\(|;)' <(cat "$root"/include/vellib/*.h |
    awk '/^(extern )?VEL_API/ { on = 1 } on { print } /[;{]/ { on = 0 }') | grep -oE '^vel_[a-z0-9_]+' | sort -u)
missing=$(comm -13 <(echo "$declared") <(sort -u "$root/tools/exports.txt"))
[ -z "$missing" ] || fault "no public header declares: $missing"

# Libc alone, and libm; the loader itself is named where atomics or TLS want it.
needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
    grep -vE '^(libc|libm|ld-linux.*)\.so\.[0-9]+$')
[ -z "$needed" ] || fault "needs more than libc: $needed"

# No allocator but ours and no C++ runtime.
hidden=$(nm -D --undefined-only "$library" | grep -oE '\b(_Zn[wa]m|_ZdlPv|__cxa_\w+|str[n]?dup|v?asprintf|getline|getdelim)@' |
    grep -v '^__cxa_\(finalize\|atexit\)@')
[ -z "$hidden" ] || fault "uses: $hidden"
users=$(nm -A --undefined-only "$archive" 2>/dev/null | grep -E ' U (malloc|calloc|realloc|free)$' |
    grep -vE ':velmalloc(fail(_unwind)?)?\.cpp\.o:')
[ -z "$users" ] || fault "call the platform's allocator: $users"

# No path of the build.
if grep -aqF "$root" "$library"; then fault "holds the path $root"; fi
if grep -aqF "$(dirname "$library")" "$library"; then fault "holds the path of the build"; fi

[ $status -eq 0 ] && echo "$(echo "$want" | wc -l) symbols; needs: $(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | paste -sd' ')"
exit $status
