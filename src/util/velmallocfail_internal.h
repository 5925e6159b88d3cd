#ifndef VELLIB_UTIL_VELMALLOCFAIL_INTERNAL_H
#define VELLIB_UTIL_VELMALLOCFAIL_INTERNAL_H

#include <cstddef>
#include <cstring>

struct vel_unwind_cursor;

/* These keep C names: the unwinding generator knows its callers by them. */
extern "C" {

/* Tells whether this allocation is to fail, and records its stack if so. */
bool vel_mallocfail_checkfail();

/* Writes the text of the frames while it fits and counts on.
 *
 * bufferlen  in: the room in buffer; out: the length of the whole text.
 *
 * Returns 0 if all of it was written, otherwise -1. */
int vel_mallocfail_backtrace_stacktrace_generate(char *buffer, size_t *bufferlen, int framecount,
                                                 void *const *frames, char **symbols);

/* The same, from the cursor outwards. */
int vel_mallocfail_unwind_stacktrace_generate(char *buffer, size_t *bufferlen,
                                              vel_unwind_cursor *unwcursorptr);
}

/* Appends a piece of text at *posptr if there is a buffer and all of it fits, otherwise returns -1;
 * moves on in any case. */
static inline int vel_mallocfail_append(char *buffer, size_t bufferlen, size_t *posptr,
                                        const char *piece, size_t piecelen)
{
    const size_t pos = *posptr;
    *posptr = pos + piecelen;
    if (!buffer || *posptr > bufferlen)
        return -1;
    memcpy(buffer + pos, piece, piecelen);
    return 0;
}

#endif
