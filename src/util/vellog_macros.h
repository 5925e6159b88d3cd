#ifndef VELLIB_UTIL_VELLOG_MACROS_H
#define VELLIB_UTIL_VELLOG_MACROS_H

#include <vellib/vellog.h>

/* How the library itself logs: to the default log, under the path of the module. A source defines
 * VEL_MODULE, its path below src/ without the ending, before its first line of log.
 *
 * Levels: 1 trace of loops and threads; 5 an unsupported value right before an abort; 6 bad input,
 * bad use, faults of a remote peer; 7 failed resources and operations; 8 an inconsistency that was
 * repaired; 9 a note on an expected condition; 10 a note on the flow; 13 detail. */
#define VEL_LOG(level, ...) VEL_LOG_AT(NULL, level, VEL_MODULE, __LINE__, __VA_ARGS__)

/* The same for a body that twins share: module is the path of the twin that runs it. */
#define VEL_LOG_IN(module, level, ...) VEL_LOG_AT(NULL, level, module, __LINE__, __VA_ARGS__)

#endif
