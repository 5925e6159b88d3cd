#include <vellib/velmalloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include <vellib/velmallocfail.h>
#include <vellib/velstdio.h>

/* Read from the environment once in the life of the process, so vel_uninit leaves it. Two first
 * allocations at once may both read it; they read the same. */
static constexpr int vel_malloc_mode_undetermined = ~0;
static constexpr int vel_malloc_mode_plain = 0;
static constexpr int vel_malloc_mode_fail = 1;

static std::atomic<int> vel_malloc_mode{vel_malloc_mode_undetermined};

[[gnu::cold, gnu::noinline]] static int vel_malloc_determine_mode()
{
    int mode = vel_malloc_mode.load(std::memory_order_relaxed);
    if (mode != vel_malloc_mode_undetermined)
        return mode;

    mode = vel_malloc_mode_plain;
    if (getenv("VELMALLOC_FAILMODE")) {
        vel_stdio_printf_stderr("VELMALLOC_FAILMODE enabled!\n");
        mode = vel_malloc_mode_fail;
    }
    vel_malloc_mode.store(mode, std::memory_order_relaxed);
    return mode;
}

/* The one test that plain allocation costs. */
static inline bool vel_malloc_may_fail()
{
    if (__builtin_expect(vel_malloc_mode.load(std::memory_order_relaxed) == vel_malloc_mode_plain,
                         1))
        return false;
    return vel_malloc_determine_mode() == vel_malloc_mode_fail;
}

void *vel_malloc(size_t size)
{
    return vel_malloc_may_fail() ? vel_mallocfail_malloc(size) : malloc(size);
}

void *vel_calloc(size_t count, size_t size)
{
    return vel_malloc_may_fail() ? vel_mallocfail_calloc(count, size) : calloc(count, size);
}

/* The calloc of glibc before 2.41 goes past the cache of the thread, and costs several times as much
 * as malloc where the block is small. The barrier keeps the compiler from making a calloc of this. */
static void *vel_malloc_zeroed(size_t size)
{
    static constexpr size_t smallsize = 512;
    if (size > smallsize)
        return calloc(1, size);
    void *pointer = malloc(size);
    asm volatile("" : "+r"(pointer));
    return pointer ? memset(pointer, 0, size) : nullptr;
}

void *vel_cmalloc(size_t size)
{
    return vel_malloc_may_fail() ? vel_mallocfail_calloc(1, size) : vel_malloc_zeroed(size);
}

void *vel_realloc(void *pointer, size_t size)
{
    return realloc(pointer, size ? size : 1);
}

void vel_free(void *pointer)
{
    free(pointer);
}

void vel_malloc_uninit(void)
{
    vel_mallocfail_uninit();
}
