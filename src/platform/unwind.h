#ifndef VELLIB_PLATFORM_UNWIND_H
#define VELLIB_PLATFORM_UNWIND_H

#include <cstddef>
#include <cstdint>

/* A walk over the frames of the calling thread. Nothing is allocated, and nothing of it needs to
 * be released. Results below 0 are failures. */

struct vel_unwind_frame {
    uintptr_t ip; /* where the frame goes on */
    uintptr_t sp;
};

struct vel_unwind_context {
    vel_unwind_frame frames[256]; /* from the innermost outwards; deeper ones are left out */
    size_t framecount;
};

struct vel_unwind_cursor {
    const vel_unwind_context *context;
    size_t frame;
};

/* Takes the stack as it is; the innermost frame is the caller's. Returns 0 or -1. */
int vel_unwind_getcontext(vel_unwind_context *context);

/* Sets the cursor to the innermost frame of the context, which must outlive it. Returns 0 or -1. */
int vel_unwind_init_local(vel_unwind_cursor *cursor, const vel_unwind_context *context);

/* Moves one frame outwards. Returns 1, or 0 where the stack ends, or -1. */
int vel_unwind_step(vel_unwind_cursor *cursor);

/* Writes the name of the frame's function, cut to the buffer, and how far the frame is in it. The
 * name is empty where it is not known. Returns 0 or -1. */
int vel_unwind_get_proc_name(const vel_unwind_cursor *cursor, char *buffer, size_t size,
                             uintptr_t *offsetptr);

/* The registers of the frame. */
uintptr_t vel_unwind_get_ip(const vel_unwind_cursor *cursor);
uintptr_t vel_unwind_get_sp(const vel_unwind_cursor *cursor);

#endif
