/* For a libc without execinfo.h, on the unwinder and on dladdr, which knows exported functions only. */
#include "platform/backtrace.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

#include "platform/unwind.h"

[[gnu::noinline]] static int vel_backtrace_take(void **frames, int most)
{
    vel_unwind_context context;
    if (vel_unwind_getcontext(&context) != 0 || most < 0)
        return 0;
    /* The first frame is this function's. */
    const size_t count = std::min(context.framecount - 1, static_cast<size_t>(most));
    for (size_t i = 0; i < count; i++)
        frames[i] = reinterpret_cast<void *>(context.frames[i + 1].ip);
    return static_cast<int>(count);
}

/* Writes one text as snprintf does, and returns its length. */
static int vel_backtrace_print(char *text, size_t size, void *frame)
{
    Dl_info info;
    if (!dladdr(frame, &info) || !info.dli_fname || !*info.dli_fname)
        return snprintf(text, size, "[%p]", frame);
    const char *name = info.dli_sname ? info.dli_sname : "";
    const void *base = info.dli_sname ? info.dli_saddr : info.dli_fbase;
    const auto offset = reinterpret_cast<uintptr_t>(frame) - reinterpret_cast<uintptr_t>(base);
    return snprintf(text, size, "%s(%s+%#lx) [%p]", info.dli_fname, name,
                    static_cast<unsigned long>(offset), frame);
}

static char **vel_backtrace_name(void *const *frames, int count)
{
    const auto number = static_cast<size_t>(std::max(count, 0));
    size_t size = (number + 1) * sizeof(char *);
    for (size_t i = 0; i < number; i++)
        size += static_cast<size_t>(vel_backtrace_print(nullptr, 0, frames[i])) + 1;

    auto *symbols = static_cast<char **>(malloc(size));
    if (!symbols)
        return nullptr;
    char *const end = reinterpret_cast<char *>(symbols) + size;
    char *text = reinterpret_cast<char *>(symbols + number + 1);
    for (size_t i = 0; i < number; i++) {
        symbols[i] = text;
        text += vel_backtrace_print(text, static_cast<size_t>(end - text), frames[i]) + 1;
    }
    return symbols;
}

int (*const vel_backtrace)(void **frames, int most) = vel_backtrace_take;
char **(*const vel_backtrace_symbols)(void *const *frames, int count) = vel_backtrace_name;
