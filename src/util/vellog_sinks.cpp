/* The delivery of one message to the sinks, in a fixed order. */
#include <cerrno>
#include <cstring>
#include <ctime>
#include <syslog.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrdupf.h>
#include <vellib/velstrndup.h>
#include <vellib/veltime.h>

#include "util/velassert.h"
#include "util/vellog_internal.h"

/* What a stream sink writes; the stamp is made at the first sink that needs it. */
struct vel_log_line {
    time_t when;
    bool stamped;
    char stamp[64];  /* the time and a blank, not terminated */
    size_t stamplen; /* 0 in raw mode */
    const char *prefix;
    const char *string;
    size_t length;
};

static char *vel_log_put_digits(char *text, int value, char behind)
{
    text[0] = static_cast<char>('0' + value / 10);
    text[1] = static_cast<char>('0' + value % 10);
    text[2] = behind;
    return text + 3;
}

/* Writes "%04u-%02u-%02u %02u:%02u:%02u ". Without a broken-down time the line goes out all the
 * same, in the year 1900. By hand, as this is most of what a line costs beside its system call. */
static void vel_log_stamp(vel_log_line *line)
{
    if (line->stamped)
        return;
    line->stamped = true;
    struct tm tm;
    if (!vel_localtime_r(&line->when, &tm))
        memset(&tm, 0, sizeof(tm));

    const int year = tm.tm_year + 1900;
    char *text = line->stamp;
    if (year < 0 || year > 9999) {
        text += snprintf(line->stamp, sizeof(line->stamp), "%04u-", static_cast<unsigned>(year));
    } else {
        text = vel_log_put_digits(text, year / 100, '\0') - 1;
        text = vel_log_put_digits(text, year % 100, '-');
    }
    text = vel_log_put_digits(text, tm.tm_mon + 1, '-');
    text = vel_log_put_digits(text, tm.tm_mday, ' ');
    text = vel_log_put_digits(text, tm.tm_hour, ':');
    text = vel_log_put_digits(text, tm.tm_min, ':');
    text = vel_log_put_digits(text, tm.tm_sec, ' ');
    line->stamplen = static_cast<size_t>(text - line->stamp);
}

static int vel_log_write_part(FILE *stream, const char *part, size_t length)
{
    return fwrite_unlocked(part, 1, length, stream) != length;
}

/* Each part that cannot be written counts, and the next one is tried all the same. The stream is
 * locked once, so that lines of other writers do not get in between. */
static int vel_log_write_line(FILE *stream, vel_log_line *line)
{
    vel_log_stamp(line);
    flockfile(stream);
    int failed = vel_log_write_part(stream, line->stamp, line->stamplen);
    if (line->prefix) {
        failed += vel_log_write_part(stream, line->prefix, strlen(line->prefix));
        failed += vel_log_write_part(stream, " ", 1);
    }
    failed += vel_log_write_part(stream, line->string, line->length);
    failed += vel_log_write_part(stream, "\n", 1);
    (void)fflush_unlocked(stream);
    funlockfile(stream);
    return failed;
}

static int vel_log_to_callback(vellog *vellog, const vel_log_line *line, int level)
{
    if (!vellog->callback)
        return 1;
    return vellog->callback(line->string, line->length, level, line->when,
                            vellog->callbackcontext) != 0;
}

static int vel_log_to_logfile(vellog *vellog, vel_log_line *line)
{
    int failed = 0;
    if (!vellog->logfile && vel_log_logfile_recreate(vellog) != 0)
        failed++;
    if (vellog->logfile)
        failed += vel_log_write_line(vellog->logfile, line);
    return failed;
}

/* A threshold lets any number pass that is not above it; the map has no more than the levels. */
static int vel_log_syslog_priority(const vellog *vellog, int level)
{
    const int last = sizeof(vellog->syslogmap) / sizeof(vellog->syslogmap[0]) - 1;
    return vellog->syslogmap[level < 0 ? 0 : level > last ? last : level] | vellog->syslogfacility;
}

/* Syslog adds the time, and none of its failures counts. */
static void vel_log_to_syslog(vellog *vellog, const vel_log_line *line, int level)
{
    const int priority = vel_log_syslog_priority(vellog, level);
    char *message = vel_strndup(line->string, line->length);
    if (!message) {
        syslog(priority, "not enough memory for logging string");
        return;
    }
    if (!line->prefix) {
        syslog(priority, "%s", message);
    } else if (char *joined = vel_strdupf("%s %s", line->prefix, message)) {
        syslog(priority, "%s", joined);
        vel_free(joined);
    } else {
        syslog(priority, "<not enough memory for prefix> %s", message);
    }
    vel_free(message);
}

int vel_log_buffer(vellog *vellog, const char *prefix, const char *string, size_t length, int level,
                   int raw)
{
    VEL_ASSERT(vellog != NULL);
    VEL_ASSERT(string != NULL);
    VEL_ASSERT(raw == 0 || raw == 1);
    VEL_ASSERT(vellog->buffer != NULL);

    vel_log_line line;
    line.when = vel_time(nullptr);
    line.stamped = raw;
    line.stamplen = 0;
    line.prefix = prefix;
    line.string = string;
    line.length = length;

    int failed = 0;
    if (vellog->callbackenabled && level <= vellog->callbacklevel)
        failed += vel_log_to_callback(vellog, &line, level);
    /* Callers tell why something failed before they are done with its errno. */
    const int platformerrno = errno;
    if (vellog->logfileenabled && level <= vellog->logfilelevel)
        failed += vel_log_to_logfile(vellog, &line);
    if (vellog->stdoutenabled && level <= vellog->stdoutlevel)
        failed += vel_log_write_line(stdout, &line);
    if (vellog->stderrenabled && level <= vellog->stderrlevel)
        failed += vel_log_write_line(stderr, &line);
    if (vellog->syslogenabled && level <= vellog->sysloglevel)
        vel_log_to_syslog(vellog, &line, level);
    errno = platformerrno;
    return -failed;
}
