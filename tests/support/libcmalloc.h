#ifndef TESTS_SUPPORT_LIBCMALLOC_H
#define TESTS_SUPPORT_LIBCMALLOC_H

/* The allocator of libc, behind one that the program defines. */

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

#ifdef __GLIBC__

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *pointer, size_t size);
void __libc_free(void *pointer);
}

#else

/* By the names of the functions that are defined in front of them. The look-up allocates nothing. */
inline void *__libc_malloc(size_t size)
{
    static void *const found = dlsym(RTLD_NEXT, "malloc");
    return reinterpret_cast<void *(*)(size_t)>(found)(size);
}

inline void *__libc_calloc(size_t count, size_t size)
{
    /* musl's own asks the program's malloc, and would be seen twice. */
    size_t bytes;
    if (__builtin_mul_overflow(count, size, &bytes))
        return nullptr;
    void *block = __libc_malloc(bytes);
    return block ? memset(block, 0, bytes) : nullptr;
}

inline void *__libc_realloc(void *pointer, size_t size)
{
    static void *const found = dlsym(RTLD_NEXT, "realloc");
    return reinterpret_cast<void *(*)(void *, size_t)>(found)(pointer, size);
}

inline void __libc_free(void *pointer)
{
    static void *const found = dlsym(RTLD_NEXT, "free");
    reinterpret_cast<void (*)(void *)>(found)(pointer);
}

#endif

#endif
