#ifndef VELLIB_UTIL_VELLOG_INTERNAL_H
#define VELLIB_UTIL_VELLOG_INTERNAL_H

#include <cstdarg>
#include <cstdio>

#include <vellib/vellog.h>
#include <vellib/velmutex.h>

/* The three files of the log share its layout: vellog has life and settings, vellog_sinks the
 * delivery, vellog_format the calls that log. */
struct vellog {
    velmutex *mutex; /* for vel_log and vel_log_raw only, once logging is threaded */
    char *prefix;
    size_t prefixlen; /* allocated */
    char *buffer;
    size_t buflen; /* allocated */
    int callbackenabled;
    vel_log_cb *callback;
    void *callbackcontext;
    int callbacklevel;
    int logfileenabled;
    char *logfilename; /* owned; NULL means the default name */
    FILE *logfile;     /* owned */
    int logfilelevel;
    int stdoutenabled;
    int stdoutlevel;
    int stderrenabled;
    int stderrlevel;
    int syslogenabled;
    int syslogfacility;
    int sysloglevel;
    int syslogmap[17]; /* priority of each level */
};

struct velloglobal {
    vellog *defaultlog;
    velmutex *macromutex; /* NULL until logging is threaded */
    vellog *macrolog;
    int macrolevel;
    const char *macrofile;
    int macroline;
};

/* NULL until first use. Published complete, and cleared before it is taken down. */
extern velloglobal *vel_log_global;

/* Gives the log that is meant, the default log for NULL; NULL if that cannot be made. */
vellog *vel_log_check_internal(vellog *vellog);

/* Delivers the message in string to the sinks that want it. Returns 0, or minus the count of the
 * sinks that failed. */
int vel_log_buffer(vellog *vellog, const char *prefix, const char *string, size_t length, int level,
                   int raw);

#endif
