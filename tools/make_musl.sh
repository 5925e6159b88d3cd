#!/usr/bin/env bash
# Makes a C++ compiler for musl of this machine's g++: wrappers, and a C++ library compiled from the
# source of GCC. The library of this project needs no C++ library, but its tests do.
# usage: make_musl.sh DIRECTORY JOBS
set -euo pipefail
directory=$(realpath -m "$1")
jobs=$2
[ -e "$directory/lib/libstdc++.a" ] && exit 0
mkdir -p "$directory/bin" "$directory/lib" "$directory/source" "$directory/build"

# The unwinder of this machine's GCC asks glibc where the tables of an object are. Here it asks the
# list of objects, which musl has too.
cat >"$directory/build/find_object.c" <<'SOURCE'
#define _GNU_SOURCE
#include <link.h>
#include <stddef.h>

struct dl_find_object {
    unsigned long long flags;
    void *begin, *end, *map, *tables;
    unsigned long long reserved[7];
};

struct search {
    ElfW(Addr) address;
    struct dl_find_object *result;
};

static int visit(struct dl_phdr_info *info, size_t size, void *context)
{
    struct search *search = context;
    const ElfW(Phdr) *tables = NULL, *found = NULL;
    for (int i = 0; i < info->dlpi_phnum; i++) {
        const ElfW(Phdr) *header = &info->dlpi_phdr[i];
        if (header->p_type == PT_GNU_EH_FRAME)
            tables = header;
        else if (header->p_type == PT_LOAD &&
                 search->address - info->dlpi_addr - header->p_vaddr < header->p_memsz)
            found = header;
    }
    if (!found || !tables)
        return 0;
    search->result->begin = (void *)(info->dlpi_addr + found->p_vaddr);
    search->result->end = (char *)search->result->begin + found->p_memsz;
    search->result->tables = (void *)(info->dlpi_addr + tables->p_vaddr);
    return 1;
}

int _dl_find_object(void *address, struct dl_find_object *result)
{
    struct search search = {(ElfW(Addr))address, result};
    *result = (struct dl_find_object){0};
    return dl_iterate_phdr(visit, &search) ? 0 : -1;
}
SOURCE

# The kernel's headers, which are nobody's of libc.
mkdir -p "$directory/include/kernel"
ln -sfn /usr/include/linux "$directory/include/kernel/linux"
ln -sfn /usr/include/asm-generic "$directory/include/kernel/asm-generic"
ln -sfn /usr/include/x86_64-linux-gnu/asm "$directory/include/kernel/asm"

# Where the frame for a C++ program differs from what musl-tools brings for C.
specs=$directory/musl.specs
sed -e 's|^libgcc.a%s.*|libgcc.a%s libgcc_eh.a%s '"$directory"'/lib/libfindobject.a -lc|' \
    -e 's|^-dynamic-linker |--eh-frame-hdr &|' \
    /usr/lib/x86_64-linux-musl/musl-gcc.specs >"$specs"
for language in gcc g++; do
    cat >"$directory/bin/musl-$language" <<WRAPPER
#!/bin/sh
exec $language "\$@" -specs $specs -idirafter $directory/include/kernel $([ $language = gcc ] || echo "-isystem $directory/include/c++ \
-isystem $directory/include/c++/x86_64-linux-musl -isystem $directory/include/c++/backward \
-isystem /usr/include/x86_64-linux-musl -nostdinc++ -L$directory/lib")
WRAPPER
    chmod +x "$directory/bin/musl-$language"
done
musl-gcc -O2 -fPIC -c -o "$directory/build/find_object.o" "$directory/build/find_object.c"
ar rcs "$directory/lib/libfindobject.a" "$directory/build/find_object.o"

# The C++ library alone, which configures by itself.
version=$(g++ -dumpfullversion)
tar -xJf "/usr/src/gcc-${version%%.*}/gcc-$version-dfsg.tar.xz" -C "$directory/source" --strip-components=1 \
    "gcc-$version"/{libstdc++-v3,libgcc,libiberty,libbacktrace,include,config} \
    "gcc-$version"/{config.guess,config.sub,config-ml.in,depcomp,install-sh,libtool-ldflags,ltmain.sh} \
    "gcc-$version"/{missing,mkinstalldirs,move-if-change,multilib.am} \
    "gcc-$version"/gcc/{BASE-VER,DATESTAMP}
ln -sf gthr-posix.h "$directory/source/libgcc/gthr-default.h"
mkdir -p "$directory/source/libstdc++-v3/testsuite"
cat >"$directory/build/musl-g++" <<WRAPPER
#!/bin/sh
exec g++ "\$@" -specs $specs
WRAPPER
chmod +x "$directory/build/musl-g++"
cd "$directory/build"
CC="$directory/bin/musl-gcc" CXX="$directory/build/musl-g++" CFLAGS=-O1 CXXFLAGS=-O1 \
    ../source/libstdc++-v3/configure --build=x86_64-linux-gnu --host=x86_64-linux-musl \
    --prefix="$directory" --libdir="$directory/lib" --with-gxx-include-dir="$directory/include/c++" \
    --disable-multilib --disable-nls --disable-libstdcxx-pch --disable-shared --disable-libstdcxx-verbose
make -j "$jobs"
make install
