/* The second generator of stack texts. The check does not call it; it is for platforms whose
 * backtrace is poor. Its texts differ from those of the first, so a database belongs to one. */
#include <vellib/velmallocfail.h>

#include <cstdlib>
#include <cstring>

#include <vellib/velsnprintf.h>

#include "platform/unwind.h"
#include "util/velassert.h"
#include "util/velmallocfail_internal.h"

static constexpr size_t vel_mallocfail_namelen = 256;
static constexpr size_t vel_mallocfail_locationlen = 32;

/* Writes the name of the cursor's function, empty where it is not known. */
static void vel_mallocfail_unwind_name(const vel_unwind_cursor *unwcursorptr,
                                       char (&name)[vel_mallocfail_namelen])
{
    uintptr_t offset;
    (void)vel_unwind_get_proc_name(unwcursorptr, name, sizeof(name), &offset);
    name[sizeof(name) - 1] = '\0';
}

/* Adds the text of one frame, behind a comma unless it is the first. Returns 0 if all of it was
 * written, otherwise -1. */
static int vel_mallocfail_unwind_append(char *buffer, size_t bufferlen, size_t *posptr, bool first,
                                        const char *name, const char *location)
{
    char frame[vel_mallocfail_namelen + 1 + vel_mallocfail_locationlen];
    /* Where this function goes on changes from run to run. */
    if (strcmp(name, "__libc_start_main") == 0)
        vel_snprintf(frame, sizeof(frame), "%s", name);
    else
        vel_snprintf(frame, sizeof(frame), "%s@%s", name, location);

    int result = 0;
    if (!first && vel_mallocfail_append(buffer, bufferlen, posptr, ",", 1) != 0)
        result = -1;
    if (vel_mallocfail_append(buffer, bufferlen, posptr, frame, strlen(frame)) != 0)
        result = -1;
    return result;
}

int vel_mallocfail_unwind_stacktrace_generate(char *buffer, size_t *bufferlen,
                                              vel_unwind_cursor *unwcursorptr)
{
    VEL_ASSERT(bufferlen != NULL);
    VEL_ASSERT(buffer != NULL || *bufferlen == 0);
    VEL_ASSERT(unwcursorptr != NULL);

    /* That the mechanism's own frames are there is asserted: the text means nothing elsewhere. */
    char name[vel_mallocfail_namelen];
    vel_mallocfail_unwind_name(unwcursorptr, name);
    VEL_ASSERT(strcmp(name, "vel_mallocfail_unwind_stacktrace") == 0);
    int err = vel_unwind_step(unwcursorptr);
    VEL_ASSERT(err > 0);

    vel_mallocfail_unwind_name(unwcursorptr, name);
    VEL_ASSERT(strcmp(name, "vel_mallocfail_checkfail") == 0);
    err = vel_unwind_step(unwcursorptr);
    VEL_ASSERT(err > 0);

    vel_mallocfail_unwind_name(unwcursorptr, name);
    if (strcmp(name, "vel_mallocfail_malloc") == 0 || strcmp(name, "vel_mallocfail_calloc") == 0) {
        err = vel_unwind_step(unwcursorptr);
        VEL_ASSERT(err >= 0);
    }

    int result = 0;
    size_t pos = 0;
    bool first = true;
    do {
        vel_mallocfail_unwind_name(unwcursorptr, name);
        char location[vel_mallocfail_locationlen];
        const int ret = vel_snprintf(location, sizeof(location) - 1, "%lx",
                                     static_cast<unsigned long>(vel_unwind_get_ip(unwcursorptr)));
        VEL_ASSERT((size_t) ret <= sizeof(location) - 1);
        if (vel_mallocfail_unwind_append(buffer, *bufferlen, &pos, first, name, location) != 0)
            result = -1;
        first = false;
        err = vel_unwind_step(unwcursorptr);
        VEL_ASSERT(err >= 0);
    } while (err != 0);

    *bufferlen = pos;
    return result;
}

[[gnu::noinline]] char *vel_mallocfail_unwind_stacktrace(void)
{
    vel_unwind_context context;
    int err = vel_unwind_getcontext(&context);
    VEL_ASSERT(err == 0);
    vel_unwind_cursor cursor;
    err = vel_unwind_init_local(&cursor, &context);
    VEL_ASSERT(err == 0);

    vel_unwind_cursor walk = cursor;
    size_t stacktracelen = 0;
    err = vel_mallocfail_unwind_stacktrace_generate(nullptr, &stacktracelen, &walk);
    VEL_ASSERT(err == -1);
    if (stacktracelen == 0)
        return nullptr;

    auto *stacktrace = static_cast<char *>(malloc(stacktracelen + 1));
    if (!stacktrace)
        return nullptr;
    stacktrace[stacktracelen] = '\0';
    walk = cursor;
    err = vel_mallocfail_unwind_stacktrace_generate(stacktrace, &stacktracelen, &walk);
    VEL_ASSERT(err == 0);
    return stacktrace;
}
