#!/usr/bin/env bash
# Compiles each public header alone, included twice, as C11 and as C++.
# usage: check_headers.sh ROOT
set -u
cd "$1/include" || exit 1
status=0
for header in vellib/*.h; do
    text=$(printf '#include <%s>\n#include <%s>\nextern int not_empty;\n' "$header" "$header")
    for how in 'cc -x c -std=c11 -Wstrict-prototypes' 'c++ -x c++ -std=c++11' 'c++ -x c++ -std=c++20'; do
        # shellcheck disable=SC2086
        if ! $how -pedantic -Wall -Wextra -Wshadow -Werror -fsyntax-only -I. - <<<"$text"; then
            echo "$header does not stand alone: $how"
            status=1
        fi
    done
done
exit $status
