#ifndef VELLIB_VELSIGNAL_H
#define VELLIB_VELSIGNAL_H

#include <vellib/velapi.h>

/* velsignal: callbacks for the two signals that ask a program to end, and a way to ignore the one
 * that a closed connection sends.
 *
 * Threads: registering takes no lock, so do it from one thread. A callback that is replaced while
 * its signal is delivered may meet the old or the new context. */

/* The signals, by their numbers on every platform. */
enum {
    VEL_SIGNAL_NONE = 0,
    VEL_SIGNAL_SIGINT = 2,   /* interrupt */
    VEL_SIGNAL_SIGPIPE = 13, /* broken pipe; is only ever ignored and has no callback */
    VEL_SIGNAL_SIGTERM = 15, /* termination */
    VEL_SIGNAL_COUNT = 16,
};

/* Takes one delivery of a signal.
 *
 * velsignal  the platform's number of the signal that arrived.
 * context    what was registered with the callback.
 *
 * Threads: runs inside the signal handler, on whichever thread the platform chose, once per
 * delivery; nothing is put off to a safe point. It may do only what is safe there: neither log,
 * nor allocate, nor lock. Setting a flag or waking a socket is the usual use. */
typedef void vel_signal_cb(int velsignal, void *context);

/* What is registered for one signal. */
typedef struct vel_signal_row {
    vel_signal_cb *callback;
    void *context; /* the host's */
} vel_signal_row;

VEL_DECLARATIONS_BEGIN

/* The registered callbacks; the number of a row is the number of its signal. All zero at the
 * start. Read it if you like, and leave the writing to the functions below. */
extern VEL_API vel_signal_row vel_signal_table[VEL_SIGNAL_COUNT];

/* Registers what runs at each interrupt signal, in place of what was registered before. It stays
 * registered across deliveries and across vel_uninit.
 *
 * callback  NULL restores the default action of the platform, which ends the process.
 * context   what the callback gets.
 *
 * Returns 0, or -1 if the platform refuses; then nothing is registered, not even what was before.
 * Logs nothing. */
VEL_API int vel_signal_register_sigint(vel_signal_cb *callback, void *context);

/* Does for the termination signal what vel_signal_register_sigint does for the interrupt. */
VEL_API int vel_signal_register_sigterm(vel_signal_cb *callback, void *context);

/* Ignores the broken pipe signal from now on, so that writing to a connection which the peer has
 * closed fails with an error instead of ending the process. The library never does this by itself:
 * call it at the start of any program that writes to sockets.
 *
 * Returns 0, or -1 if the platform refuses. Logs nothing. */
VEL_API int vel_signal_ignore_sigpipe(void);

VEL_DECLARATIONS_END

#endif
