#ifndef VELLIB_NET_VELSTATUSLINE_CORE_H
#define VELLIB_NET_VELSTATUSLINE_CORE_H

/* The status line of a response, which HTTP and ICAP write alike. A twin is a struct of facts:
 *   module     the path of the module, for the log
 *   protocol   its name, for the texts of the log
 *   prefix     how the line begins
 *   codelevel  the level at which the code that was found is logged */

#include <string.h>

#include <vellib/velerror.h>

#include "util/vellog_macros.h"

/* Reads the code behind the first blank of a line. Returns VEL_ERROR_PROTOCOL, logged, for a line
 * that is none of this protocol, and leaves *codeptr then. */
template <typename Twin>
static vel_error_t vel_statuscore_parse(const char *line, unsigned int *codeptr)
{
    if (strncmp(line, Twin::prefix, strlen(Twin::prefix)) != 0) {
        VEL_LOG_IN(Twin::module, 6, "The %s response '%s' did not start with '%s'", Twin::protocol,
                   line, Twin::prefix);
        return VEL_ERROR_PROTOCOL;
    }
    const char *digit = strchr(line, ' ');
    if (!digit) {
        VEL_LOG_IN(Twin::module, 6, "The %s response '%s' did not have the result code",
                   Twin::protocol, line);
        return VEL_ERROR_PROTOCOL;
    }
    unsigned int code = 0;
    for (digit++; *digit != ' ' && *digit != '\0'; digit++) {
        if (*digit < '0' || *digit > '9') {
            VEL_LOG_IN(Twin::module, 6, "Invalid result code digit '%c' in response '%s'", *digit,
                       line);
            return VEL_ERROR_PROTOCOL;
        }
        code = code * 10 + static_cast<unsigned int>(*digit - '0');
        if (code >= 1000) {
            VEL_LOG_IN(Twin::module, 6, "Invalid %s status code in response '%s'", Twin::protocol,
                       line);
            return VEL_ERROR_PROTOCOL;
        }
    }
    VEL_LOG_IN(Twin::module, Twin::codelevel, "the %s status code is %d", Twin::protocol,
               static_cast<int>(code));
    *codeptr = code;
    return VEL_ERROR_NONE;
}

#endif
