/*
 * librtlog: a small run-time logger for C callers.
 *
 * Quiet unless enabled through the environment (read by rt_log_init):
 *   RT_LOG_LEVEL  enable logging; a message is written when its level is at
 *                 or below this number (1 errors ... 4 debug). Unset, empty
 *                 or 0: nothing is written.
 *   RT_LOG_FILE   append to this file instead of standard error.
 *
 * Each call writes one line:
 *   <UTC time> [<pid>] <component> <category> <file>:<line>: <message>
 * with a single write(2) on an O_APPEND descriptor, so lines from several
 * threads or processes never interleave.
 */
#ifndef RTLOG_H
#define RTLOG_H

#define RTLOG_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the environment. Safe to call any number of times, from any thread;
 * each call re-reads the variables. */
RTLOG_API void rt_log_init(void);

RTLOG_API void _rt_log(const char* file, int line, const char* component, const char* category, int level,
                       const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 6, 7)))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif
