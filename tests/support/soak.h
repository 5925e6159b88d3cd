#ifndef TESTS_SUPPORT_SOAK_H
#define TESTS_SUPPORT_SOAK_H

/* What a test needs that runs on and on. Include this in one source of a program, as it defines the
 * platform's allocator, to count the blocks. */

#include <atomic>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SUPPORT_SOAK_INTERCEPTOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SUPPORT_SOAK_INTERCEPTOR 1
#endif

namespace support {

/* Whether the test is to run at its full length: VEL_TEST_SOAK is set. */
inline bool soak()
{
    return getenv("VEL_TEST_SOAK") != nullptr;
}

/* So much of something at full length, and so much in an ordinary run. */
template <typename Number> Number soak_length(Number full, Number ordinary)
{
    return soak() ? full : ordinary;
}

/* Says how much the test has done at its full length, for docs/quality.md. */
inline void soak_report(uint64_t amount, const char *what)
{
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    if (soak())
        printf("soak: %s.%s: %" PRIu64 " %s\n", test->test_suite_name(), test->name(), amount,
               what);
}

#if !defined(SUPPORT_SOAK_INTERCEPTOR)
inline std::atomic<long> soak_block_count;
#endif

/* What the process holds. */
struct soak_state {
    size_t descriptors;
    size_t threads;
    long blocks;    /* of memory; 0 under a sanitizer, which looks for leaks itself */
    long residents; /* kilobytes; left out of comparisons, as it depends on more than blocks */

    bool operator==(const soak_state &other) const
    {
        return descriptors == other.descriptors && threads == other.threads &&
               blocks == other.blocks;
    }
};

inline std::ostream &operator<<(std::ostream &out, const soak_state &state)
{
    return out << state.descriptors << " descriptors, " << state.threads << " threads, "
               << state.blocks << " blocks, " << state.residents << " KiB";
}

/* Counts the entries of a directory that fit. */
template <typename Fits> size_t soak_entries(const char *name, Fits fits)
{
    size_t count = 0;
    DIR *directory = opendir(name);
    if (!directory)
        abort();
    while (const dirent *entry = readdir(directory))
        count += entry->d_name[0] != '.' && fits(entry->d_name);
    closedir(directory);
    return count;
}

/* Whether a thread is there to stay. One that has been joined is in the list of the kernel for a
 * moment still, but has the flag PF_EXITING. */
inline bool soak_thread_runs(const char *id)
{
    char status[1024] = "";
    FILE *file = fopen((std::string("/proc/self/task/") + id + "/stat").c_str(), "re");
    if (!file)
        return false;
    const bool there = fgets(status, sizeof status, file) != nullptr;
    fclose(file);
    const char *behindname = strrchr(status, ')');
    unsigned long flags = 0;
    return there && behindname &&
           sscanf(behindname, ") %*c %*d %*d %*d %*d %*d %lu", &flags) == 1 && !(flags & 4);
}

inline long soak_residents()
{
    long kilobytes = -1;
    char line[256];
    FILE *status = fopen("/proc/self/status", "re");
    if (!status)
        abort();
    while (fgets(line, sizeof line, status)) {
        if (strncmp(line, "VmRSS:", 6) == 0)
            kilobytes = strtol(line + 6, nullptr, 10);
    }
    fclose(status);
    return kilobytes;
}

/* Looks at the process. */
inline soak_state soak_look()
{
    soak_state state = {};
    state.threads = soak_entries("/proc/self/task", soak_thread_runs);
    state.descriptors = soak_entries("/proc/self/fd", [](const char *) { return true; });
    state.residents = soak_residents();
#if !defined(SUPPORT_SOAK_INTERCEPTOR)
    state.blocks = soak_block_count;
#endif
    return state;
}

} // namespace support

#if !defined(SUPPORT_SOAK_INTERCEPTOR)
#include "support/libcmalloc.h"

extern "C" {

void *malloc(size_t size)
{
    void *block = __libc_malloc(size);
    support::soak_block_count += block != nullptr;
    return block;
}

void *calloc(size_t count, size_t size)
{
    void *block = __libc_calloc(count, size);
    support::soak_block_count += block != nullptr;
    return block;
}

void *realloc(void *pointer, size_t size)
{
    void *block = __libc_realloc(pointer, size);
    support::soak_block_count += !pointer && block;
    support::soak_block_count -= pointer && !block && size == 0;
    return block;
}

void free(void *pointer)
{
    support::soak_block_count -= pointer != nullptr;
    __libc_free(pointer);
}

} // extern "C"
#endif

#endif
