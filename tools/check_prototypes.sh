#!/usr/bin/env bash
# Compiles tests/checks/prototypes.c, which declares the binary interface once more, against the public
# headers, as C and as C++, and compares its names with the exported ones.
# usage: check_prototypes.sh ROOT
set -u
root=$1
source=$root/tests/checks/prototypes.c
status=0
for how in 'cc -x c -std=c11' 'c++ -x c++ -std=c++11' 'c++ -x c++ -std=c++20'; do
    # shellcheck disable=SC2086
    if ! $how -pedantic -Wall -Wextra -Werror -fsyntax-only -I"$root/include" "$source"; then
        echo "the headers do not declare the binary interface: $how"
        status=1
    fi
done

# A function is named first before the parenthesis; the object is what the file says it is.
names=$({ echo vel_signal_table; sed 's|/\*.*\*/||' "$source" |
    awk 'BEGIN { RS = ";" } !/typedef|static_assert/ && match($0, /vel_[a-z0-9_]+\(/) {
        print substr($0, RSTART, RLENGTH - 1) }'; } | LC_ALL=C sort)
if ! diff <(echo "$names") "$root/tools/exports.txt"; then
    echo 'tests/checks/prototypes.c (<) and tools/exports.txt (>) name different symbols'
    status=1
fi
[ $status -eq 0 ] && echo "$(echo "$names" | wc -l) symbols are declared as they were"
exit $status
