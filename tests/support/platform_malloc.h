#ifndef TESTS_SUPPORT_PLATFORM_MALLOC_H
#define TESTS_SUPPORT_PLATFORM_MALLOC_H

/* Defines the platform's allocator for the whole program, so that the allocations that the library
 * itself makes can be counted and made to fail. Include this in one source of a program. */

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <iterator>
#include <utility>
#include <vector>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SUPPORT_INTERCEPTOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SUPPORT_INTERCEPTOR 1
#endif

#if defined(SUPPORT_INTERCEPTOR)
#define SUPPORT_PLATFORM(name) __interceptor_##name
extern "C" {
void *SUPPORT_PLATFORM(malloc)(size_t size);
void *SUPPORT_PLATFORM(calloc)(size_t count, size_t size);
void *SUPPORT_PLATFORM(realloc)(void *pointer, size_t size);
}
#else
#include "support/libcmalloc.h"
#define SUPPORT_PLATFORM(name) __libc_##name
#endif

/* An inlined copy would take the caller's caller for the caller. */
#define SUPPORT_OUTLINED __attribute__((noinline))

/* The first allocations come before the sanitizer has set up its shadow memory. With clang,
 * no_sanitize leaves the calls at entry and exit that the thread sanitizer wants. */
#if defined(__clang__)
#define SUPPORT_UNCHECKED __attribute__((disable_sanitizer_instrumentation))
#else
#define SUPPORT_UNCHECKED __attribute__((no_sanitize("address", "thread", "undefined")))
#endif

namespace support {

/* Watches the allocations of the library while it lives. One at a time, and one thread. */
class malloc_watch {
  public:
    /* The allocations with the numbers first to last fail; the next one is number 1. */
    explicit malloc_watch(size_t first = 0, size_t last = 0)
    {
        first_ = first;
        last_ = last < first ? first : last;
        count_ = 0;
        watching_ = true;
    }
    ~malloc_watch()
    {
        watching_ = false;
    }
    malloc_watch(const malloc_watch &) = delete;
    malloc_watch &operator=(const malloc_watch &) = delete;

    /* How many there were so far, and what the first of them asked for, in bytes. */
    static size_t count()
    {
        return count_;
    }
    static std::vector<size_t> sizes()
    {
        return std::vector<size_t>(sizes_, sizes_ + std::min(count_, std::size(sizes_)));
    }

    /* Notes an allocation of the given caller; whether it is to fail. */
    SUPPORT_UNCHECKED static bool note(size_t size, void *caller)
    {
        if (!watching_ || looking_)
            return false;
        looking_ = true; /* the look-up may allocate, and another thread may meanwhile */
        Dl_info info;
        const bool own = dladdr(caller, &info) && strstr(info.dli_fname, "libvellib");
        looking_ = false;
        if (!own)
            return false;
        if (count_ < std::size(sizes_))
            sizes_[count_] = size;
        count_++;
        return first_ != 0 && count_ >= first_ && count_ <= last_;
    }

  private:
    friend class malloc_pause;

    static inline thread_local bool looking_;
    static inline bool watching_;
    static inline size_t first_;
    static inline size_t last_;
    static inline size_t count_;
    static inline size_t sizes_[64];
};

/* Lets all allocations pass, uncounted, while it lives. */
class malloc_pause {
  public:
    malloc_pause() : watching_(std::exchange(malloc_watch::watching_, false))
    {
    }
    ~malloc_pause()
    {
        malloc_watch::watching_ = watching_;
    }
    malloc_pause(const malloc_pause &) = delete;
    malloc_pause &operator=(const malloc_pause &) = delete;

  private:
    bool watching_;
};

} // namespace support

extern "C" {

SUPPORT_OUTLINED SUPPORT_UNCHECKED void *malloc(size_t size)
{
    if (support::malloc_watch::note(size, __builtin_return_address(0)))
        return nullptr;
    return SUPPORT_PLATFORM(malloc)(size);
}

SUPPORT_OUTLINED SUPPORT_UNCHECKED void *calloc(size_t count, size_t size)
{
    if (support::malloc_watch::note(count * size, __builtin_return_address(0)))
        return nullptr;
    return SUPPORT_PLATFORM(calloc)(count, size);
}

SUPPORT_OUTLINED SUPPORT_UNCHECKED void *realloc(void *pointer, size_t size)
{
    if (support::malloc_watch::note(size, __builtin_return_address(0)))
        return nullptr;
    return SUPPORT_PLATFORM(realloc)(pointer, size);
}

#if defined(SUPPORT_INTERCEPTOR)
/* The leak check knows the blocks that the dynamic linker keeps by the caller of malloc, which is
 * this file now. The linker goes by the name of its file: its functions have names only where the
 * debug symbols of libc are installed. */
const char *__lsan_default_suppressions(void);
const char *__lsan_default_suppressions(void)
{
    return "leak:ld-linux\nleak:_dl_map_object_deps\nleak:_dl_open\n";
}

const char *__lsan_default_options(void);
const char *__lsan_default_options(void)
{
    return "print_suppressions=0";
}
#endif

} // extern "C"

#endif
