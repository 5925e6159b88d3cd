#ifndef VELLIB_UTIL_VELSIGNAL_INTERNAL_H
#define VELLIB_UTIL_VELSIGNAL_INTERNAL_H

#include <vellib/velsignal.h>

/* Fills the row of a signal and installs its handler, or the default action for a callback of
 * NULL. Returns 0, or -1: with nothing touched if the signal has no callback, and with an empty
 * row if the platform refuses. */
int vel_signal_register(int velsignal, vel_signal_cb *callback, void *context);

/* Has the platform ignore a signal. Returns 0 or -1; the table is not touched. */
int vel_signal_ignore(int velsignal);

/* Hands a delivery to the callback of a row, if it has one. */
void vel_signal_handler(int velsignal, int platformsignal);

#endif
