#include "platform/backtrace.h"

#include <execinfo.h>

int (*const vel_backtrace)(void **frames, int most) = backtrace;
char **(*const vel_backtrace_symbols)(void *const *frames, int count) = backtrace_symbols;
