#!/usr/bin/env bash
# Compares the binary interface of the library with the one that is kept in abi/: the symbols, the
# functions behind them, and the types of the public headers. With --update the interface as it is
# takes the place of that one.
# usage: check_abi.sh ROOT WORK [--update]
set -eu
root=$(realpath "$1") work=$(realpath -m "$2") update=${3:-}
baseline=$root/abi/libvellib.so.1.abi

# A build of its own, since the tools read debug information, and unoptimised code is built soonest.
cmake -S "$root" -B "$work" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_C_COMPILER=gcc \
    -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_FLAGS='-g -O0' >"$work.log"
cmake --build "$work" --target vellib >>"$work.log" || { tail -n 20 "$work.log"; exit 1; }

# Nothing of the machine, of paths, or of what stands in src/ alone.
abidw --headers-dir "$root/include" --suppressions "$root/abi/libvellib.abignore" --exported-interfaces-only \
    --drop-private-types --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-show-locs \
    --no-architecture --no-write-default-sizes --no-elf-needed --no-parameter-names \
    --type-id-style hash --out-file "$work/now.abi" "$work/libvellib.so.1"
functions=$(grep -c "<elf-symbol .*type='func-type'" "$work/now.abi")
[ "$(grep -c '<function-decl ' "$work/now.abi")" -eq "$functions" ] ||
    { echo "not all of $functions functions are described"; exit 1; }

if [ "$update" = --update ]; then
    [ ! -e "$baseline" ] || abidiff "$baseline" "$work/now.abi" || true
    cp "$work/now.abi" "$baseline"
    exit
fi

status=0
abidiff "$baseline" "$work/now.abi" >"$work/report" || status=$?
# Of the bits of the status, 4 is a change of any kind, and 8 one that breaks programs for certain.
case $status in
0)
    echo "the binary interface is the one that is kept; $functions functions"
    exit
    ;;
4) echo 'The binary interface has changed. ./dev abi keeps the new one, if all programs built before still run:' ;;
12) echo 'The binary interface is broken: programs built before would not run any more:' ;;
*) echo "abidiff ended with $status:" ;;
esac
cat "$work/report"
exit 1
