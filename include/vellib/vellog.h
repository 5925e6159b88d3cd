#ifndef VELLIB_VELLOG_H
#define VELLIB_VELLOG_H

#include <stddef.h>
#include <stdio.h>
#include <time.h>

#include <vellib/velapi.h>

/* vellog: one message to up to five sinks, which are a callback, a log file, the standard output,
 * the standard error and syslog. Each sink has a flag and a threshold of its own.
 *
 * A level is a number from 0 to 16; higher is more verbose. A sink takes a message whose level is
 * not above its threshold. A new log has the standard error sink on; the threshold of the callback
 * is 16 and that of every other sink 8. A line on a stream is the local time, the place and level
 * where the library's macro gave them, the message and a line feed, and is flushed at once:
 *
 *     2026-11-21 07:50:39 adt/velcache:61[7] not enough memory for cache context
 *
 * NULL for a log means the default log, which the library itself writes to and which arises at
 * first use; vel_log_destroy and vel_log_syslog_map alone do not take it. If the default log
 * cannot be made for want of memory, a setter does nothing. Delivery leaves errno as it was, but for
 * what a callback does to it.
 *
 * Threads: a log belongs to one thread until vel_log_init_threaded, which vel_thread_start calls.
 * From then on lines of the library (VEL_LOG_AT) exclude each other, and so do vel_log and
 * vel_log_raw on one log; the two groups do not exclude each other, so log to a log of your own
 * with vel_log where several threads run. Setters take no lock: set up before threads start.
 * Note: the event loop and the UDP server log each turn at level 1, which the standard error sink
 * of a new log shows. Set its level to 0 or turn it off. */
typedef struct vellog vellog;

/* Takes one message.
 *
 * string   the message alone: no time, no place, no level. Valid until the callback returns.
 * length   its length in bytes, without the NUL.
 * level    0 to 16.
 * when     the time at which delivery began.
 * context  what was given to vel_log_callback_set.
 *
 * Returns 0, or any other number to have the message count as not delivered.
 * Threads: the one that logged. Lines of the library arrive with their lock held, so a callback
 * must not log through VEL_LOG_AT nor call what may do so. */
typedef int vel_log_cb(const char *string, size_t length, int level, time_t when, void *context);

VEL_DECLARATIONS_BEGIN

/* Creates the default log unless it exists. Never needed: first use does it.
 *
 * Returns 0, or -1 if there is not enough memory. */
VEL_API int vel_log_init(void);

/* Does what vel_log_init does and lets several threads log from now on. vel_thread_start calls it;
 * call it yourself before starting a thread by other means. It stays in force until vel_uninit.
 *
 * Returns 0, or -1 if there is not enough memory or the platform has no mutex to give. */
VEL_API int vel_log_init_threaded(void);

/* Destroys the default log, if there is one, and ends threaded logging; a part of vel_uninit.
 * Threads: no other thread may be in the library. */
VEL_API void vel_log_uninit(void);

/* Creates a log with the default settings.
 *
 * Returns the log, for vel_log_destroy, or NULL if there is not enough memory, which is not
 * logged. */
VEL_API vellog *vel_log_create(void);

/* Destroys a log and closes its log file. NULL is not accepted. */
VEL_API void vel_log_destroy(vellog *log);

/* Sets the syslog priority that a level maps to.
 *
 * log       a log; NULL is not accepted.
 * level     0 to 16.
 * priority  a number of syslog.h, such as LOG_ERR.
 *
 * Returns 0, or -1 with nothing changed if the level is out of range. */
VEL_API int vel_log_syslog_map(vellog *log, int level, int priority);

/* Sets the function and the context of the callback sink, which stays off or on as it was. NULL, as
 * at first, is no function.
 * Note: with the sink on and no function set, every message counts as not delivered. */
VEL_API void vel_log_callback_set(vellog *log, vel_log_cb *callback, void *context);

/* Turns the callback sink on. */
VEL_API void vel_log_callback_enable(vellog *log);

/* Turns the callback sink off. */
VEL_API void vel_log_callback_disable(vellog *log);

/* Sets the highest level that the callback sink takes.
 *
 * level  0 to 16; 16 until then. */
VEL_API void vel_log_callback_set_level(vellog *log, int level);

/* Sets the name of the log file, "veldefault.log" until then. A file open so far is closed; the
 * new one is opened for appending with the next message.
 *
 * name  a path, copied.
 *
 * Returns 0, or -1 with the name and the file unchanged if there is not enough memory. */
VEL_API int vel_log_logfile_set_name(vellog *log, const char *name);

/* Makes an open stream the log file. A file open so far is closed.
 *
 * stream  becomes the log's, which closes it. */
VEL_API void vel_log_logfile_set_filehandle(vellog *log, FILE *stream);

/* Turns the log file sink on. The file is opened with the next message. */
VEL_API void vel_log_logfile_enable(vellog *log);

/* Turns the log file sink off. An open file stays open. */
VEL_API void vel_log_logfile_disable(vellog *log);

/* Closes the log file and opens it anew under its name, for after it was moved away.
 *
 * Returns 0, also if the log file sink is off, when nothing is done; -1 if the file cannot be
 * opened, which every later message then tries again. */
VEL_API int vel_log_logfile_recreate(vellog *log);

/* Sets the highest level that the log file sink takes.
 *
 * level  0 to 16; 8 until then. */
VEL_API void vel_log_logfile_set_level(vellog *log, int level);

/* Turns the standard output sink on. */
VEL_API void vel_log_stdout_enable(vellog *log);

/* Turns the standard output sink off. */
VEL_API void vel_log_stdout_disable(vellog *log);

/* Sets the highest level that the standard output sink takes.
 *
 * level  0 to 16; 8 until then. */
VEL_API void vel_log_stdout_set_level(vellog *log, int level);

/* Turns the standard error sink on. */
VEL_API void vel_log_stderr_enable(vellog *log);

/* Turns the standard error sink off. */
VEL_API void vel_log_stderr_disable(vellog *log);

/* Sets the highest level that the standard error sink takes.
 *
 * level  0 to 16; 8 until then. */
VEL_API void vel_log_stderr_set_level(vellog *log, int level);

/* Turns the syslog sink on. Lines reach syslog without a time, as syslog adds its own. */
VEL_API void vel_log_syslog_enable(vellog *log);

/* Turns the syslog sink off. */
VEL_API void vel_log_syslog_disable(vellog *log);

/* Sets the facility of the syslog sink, LOG_USER until then; a number of syslog.h. */
VEL_API void vel_log_syslog_set_facility(vellog *log, int facility);

/* Sets the highest level that the syslog sink takes.
 *
 * level  0 to 16; 8 until then. */
VEL_API void vel_log_syslog_set_level(vellog *log, int level);

/* Formats a message and delivers it with the time.
 *
 * level   0 to 16.
 * format  as for printf.
 *
 * Returns 0, or -1 if a sink failed, the message could not be formatted, or there is not enough
 * memory. A failing sink does not keep the message from the others. */
VEL_API int vel_log(vellog *log, int level, const char *format, ...) VEL_PRINTF(3, 4);

/* Does what vel_log does, without the time on the line. */
VEL_API int vel_log_raw(vellog *log, int level, const char *format, ...) VEL_PRINTF(3, 4);

/* Takes the lock of the macro steps, once vel_log_init_threaded has been called; a step of
 * VEL_LOG_AT. */
VEL_API void vel_log_macro_mutex_lock(void);

/* Releases the lock of the macro steps; a step of VEL_LOG_AT. */
VEL_API void vel_log_macro_mutex_unlock(void);

/* Stores where the next vel_log_macro_format logs to and what its prefix says; a step of
 * VEL_LOG_AT. file is kept as a pointer. */
VEL_API void vel_log_macro_set_values(vellog *log, int level, const char *file, int line);

/* Formats a message and delivers it with the stored values; a step of VEL_LOG_AT.
 *
 * Returns what vel_log returns. Without memory for the prefix, the message goes out without it. */
VEL_API int vel_log_macro_format(const char *format, ...) VEL_PRINTF(1, 2);

/* Does in one call, without any lock, what VEL_LOG_AT does in four.
 *
 * Returns what vel_log_macro_format returns. */
VEL_API int vel_log_macro(vellog *log, int level, const char *file, int line, const char *format,
                          ...) VEL_PRINTF(5, 6);

VEL_DECLARATIONS_END

/* Logs a message with the place it comes from, excluding other threads that do the same.
 *
 * log    a log, or NULL for the default log.
 * level  0 to 16.
 * file   the name that the line shows, such as "adt/velcache".
 * line   the number that the line shows.
 *
 * A format as for printf and its arguments follow. The text is always formatted, whether or not a
 * sink takes it. */
#define VEL_LOG_AT(log, level, file, line, ...)                                                    \
    do {                                                                                           \
        vel_log_macro_mutex_lock();                                                                \
        vel_log_macro_set_values(log, level, file, line);                                          \
        vel_log_macro_format(__VA_ARGS__);                                                         \
        vel_log_macro_mutex_unlock();                                                              \
    } while (0)

#endif
