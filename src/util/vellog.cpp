#include <vellib/vellog.h>

#include <syslog.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "util/velassert.h"
#include "util/vellog_internal.h"

velloglobal *vel_log_global;

int vel_log_init(void)
{
    if (vel_log_global)
        return 0;
    auto *global = static_cast<velloglobal *>(vel_cmalloc(sizeof(velloglobal)));
    if (!global)
        return -1;
    global->defaultlog = vel_log_create();
    if (!global->defaultlog) {
        vel_free(global);
        return -1;
    }
    vel_log_global = global;
    return 0;
}

int vel_log_init_threaded(void)
{
    if (vel_log_init() != 0)
        return -1;
    if (!vel_log_global->macromutex)
        vel_log_global->macromutex = vel_mutex_create();
    return vel_log_global->macromutex ? 0 : -1;
}

void vel_log_uninit(void)
{
    if (!vel_log_global)
        return;
    velloglobal *global = vel_log_global;
    vel_log_global = nullptr;
    if (global->macromutex)
        vel_mutex_destroy(global->macromutex);
    vel_log_destroy(global->defaultlog);
    vel_free(global);
}

/* Neither monotonic nor an oversight. */
static void vel_log_map_defaults(vellog *vellog)
{
    static constexpr int priorities[] = {
        LOG_DEBUG, LOG_EMERG,   LOG_EMERG,   LOG_ALERT,  LOG_CRIT,  LOG_ERR,
        LOG_ERR,   LOG_WARNING, LOG_WARNING, LOG_NOTICE, LOG_INFO,  LOG_NOTICE,
        LOG_INFO,  LOG_DEBUG,   LOG_DEBUG,   LOG_DEBUG,  LOG_DEBUG,
    };
    int level = 0;
    for (const int priority : priorities)
        vel_log_syslog_map(vellog, level++, priority);
}

vellog *vel_log_create(void)
{
    auto *vellog = static_cast<struct vellog *>(vel_calloc(1, sizeof(struct vellog)));
    if (!vellog)
        return nullptr;
    vellog->callbacklevel = 16;
    vellog->logfilelevel = 8;
    vellog->stdoutlevel = 8;
    vellog->stderrenabled = 1;
    vellog->stderrlevel = 8;
    vellog->syslogfacility = LOG_USER;
    vellog->sysloglevel = 8;
    vel_log_map_defaults(vellog);
    return vellog;
}

void vel_log_destroy(vellog *vellog)
{
    VEL_ASSERT(vellog != NULL);

    vel_free(vellog->prefix);
    vel_free(vellog->buffer);
    vel_free(vellog->logfilename);
    if (vellog->logfile)
        fclose(vellog->logfile);
    if (vellog->mutex)
        vel_mutex_destroy(vellog->mutex);
    vel_free(vellog);
}

vellog *vel_log_check_internal(vellog *vellog)
{
    if (vellog)
        return vellog;
    if (!vel_log_global && vel_log_init() != 0)
        return nullptr;
    VEL_ASSERT(vel_log_global->defaultlog != NULL);
    return vel_log_global->defaultlog;
}

int vel_log_syslog_map(vellog *vellog, int level, int priority)
{
    VEL_ASSERT(vellog != NULL);

    if (level < 0 || level > 16)
        return -1;
    vellog->syslogmap[level] = priority;
    return 0;
}

void vel_log_callback_set(vellog *vellog, vel_log_cb *callback, void *context)
{
    vellog = vel_log_check_internal(vellog);
    if (!vellog)
        return;
    vellog->callback = callback;
    vellog->callbackcontext = context;
}

/* An argument that is called vellog hides the type of that name. */
using vellog_fields = struct vellog;

/* Every flag and threshold is one field that a setter stores. */
static void vel_log_store(vellog *vellog, int vellog_fields::*field, int value)
{
    vellog = vel_log_check_internal(vellog);
    if (vellog)
        vellog->*field = value;
}

void vel_log_callback_enable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::callbackenabled, 1);
}

void vel_log_callback_disable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::callbackenabled, 0);
}

void vel_log_callback_set_level(vellog *vellog, int level)
{
    vel_log_store(vellog, &vellog_fields::callbacklevel, level);
}

int vel_log_logfile_set_name(vellog *vellog, const char *name)
{
    vellog = vel_log_check_internal(vellog);
    if (!vellog)
        return -1;
    char *logfilename = vel_strdup(name);
    if (!logfilename)
        return -1;
    vel_free(vellog->logfilename);
    vellog->logfilename = logfilename;
    vel_log_logfile_set_filehandle(vellog, nullptr);
    return 0;
}

void vel_log_logfile_set_filehandle(vellog *vellog, FILE *stream)
{
    vellog = vel_log_check_internal(vellog);
    if (!vellog)
        return;
    if (vellog->logfile)
        fclose(vellog->logfile);
    vellog->logfile = stream;
}

static FILE *vel_log_file_append_ascii(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return fopen(filename, "a");
}

int vel_log_logfile_recreate(vellog *vellog)
{
    vellog = vel_log_check_internal(vellog);
    if (!vellog || !vellog->logfileenabled)
        return 0;
    const char *name = vellog->logfilename ? vellog->logfilename : "veldefault.log";
    vel_log_logfile_set_filehandle(vellog, nullptr);
    vellog->logfile = vel_log_file_append_ascii(name);
    return vellog->logfile ? 0 : -1;
}

void vel_log_logfile_enable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::logfileenabled, 1);
}

void vel_log_logfile_disable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::logfileenabled, 0);
}

void vel_log_logfile_set_level(vellog *vellog, int level)
{
    vel_log_store(vellog, &vellog_fields::logfilelevel, level);
}

void vel_log_stdout_enable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::stdoutenabled, 1);
}

void vel_log_stdout_disable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::stdoutenabled, 0);
}

void vel_log_stdout_set_level(vellog *vellog, int level)
{
    vel_log_store(vellog, &vellog_fields::stdoutlevel, level);
}

void vel_log_stderr_enable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::stderrenabled, 1);
}

void vel_log_stderr_disable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::stderrenabled, 0);
}

void vel_log_stderr_set_level(vellog *vellog, int level)
{
    vel_log_store(vellog, &vellog_fields::stderrlevel, level);
}

void vel_log_syslog_enable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::syslogenabled, 1);
}

void vel_log_syslog_disable(vellog *vellog)
{
    vel_log_store(vellog, &vellog_fields::syslogenabled, 0);
}

void vel_log_syslog_set_level(vellog *vellog, int level)
{
    vel_log_store(vellog, &vellog_fields::sysloglevel, level);
}

void vel_log_syslog_set_facility(vellog *vellog, int facility)
{
    vel_log_store(vellog, &vellog_fields::syslogfacility, facility);
}
