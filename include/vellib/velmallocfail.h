#ifndef VELLIB_VELMALLOCFAIL_H
#define VELLIB_VELMALLOCFAIL_H

#include <stddef.h>

#include <vellib/velapi.h>

/* velmallocfail: the failure injection behind vel_malloc. An allocation that is reached by a call
 * stack that was never seen before fails, and the stack is appended to "velmallocfail.db" in the
 * working directory, one a line, before it does. Reached again, in this run or a later one in the
 * same directory, it succeeds. A program run until the file no longer grows has met every failure
 * of every allocation once. A new build changes the stacks: begin with an empty directory.
 * Threads: one at a time. */

VEL_DECLARATIONS_BEGIN

/* Allocates as malloc does, or fails if this call stack is new. vel_malloc calls it when
 * VELMALLOC_FAILMODE is on.
 *
 * Returns a block for the platform's free, or NULL. */
VEL_API void *vel_mallocfail_malloc(size_t size);

/* Allocates as calloc does, or fails if this call stack is new. vel_calloc and vel_cmalloc call
 * it when VELMALLOC_FAILMODE is on.
 *
 * Returns a block for the platform's free, or NULL. */
VEL_API void *vel_mallocfail_calloc(size_t count, size_t size);

/* Forgets the failure database in memory, if there is one. The file stays.
 * Threads: no other thread may be in the library. */
VEL_API void vel_mallocfail_uninit(void);

/* Gives the text of the caller's stack: up to 50 frames from the innermost outwards, joined by
 * commas, each as backtrace_symbols has it without the address.
 *
 * Returns a new string for the platform's free, or NULL if there is not enough memory. */
VEL_API char *vel_mallocfail_backtrace_stacktrace(void);

/* Gives the text of the stack as name@location frames, by the unwinder.
 *
 * Returns a new string for the platform's free, or NULL if there is not enough memory.
 * Note: it can be called by the check of the failure injection alone and aborts anywhere else. It
 * serves platforms whose backtrace is poor. */
VEL_API char *vel_mallocfail_unwind_stacktrace(void);

VEL_DECLARATIONS_END

#endif
