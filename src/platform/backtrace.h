#ifndef VELLIB_PLATFORM_BACKTRACE_H
#define VELLIB_PLATFORM_BACKTRACE_H

/* The stack of the caller as texts, "object(function+0x12) [0x7f00]". Pointers to functions, since a
 * function of the seam's own between caller and platform would be a frame more. */

/* Writes where the frames go on, the caller's first, and returns how many there are, at most so many
 * as the second argument says. */
extern int (*const vel_backtrace)(void **frames, int most);

/* Makes a text of each, all in one block for the platform's free. Returns NULL without memory. */
extern char **(*const vel_backtrace_symbols)(void *const *frames, int count);

#endif
