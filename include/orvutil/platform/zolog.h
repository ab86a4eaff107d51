/*
 * The logging facility.
 *
 * Levels follow the syslog priority encoding: severity = level & 7
 * (0 emergency, 1 alert, 2 critical, 3 error, 4 warning, 5 notice,
 * 6 information, 7 debug) and facility = level >> 3. So 3 is an error,
 * 37 a notice of facility 4 and 52 a warning of facility 6.
 *
 * Handle 0 is the default log and always exists. zolog_open makes more.
 * A record is one line:
 *
 *     2026-11-21T04:59:58.123Z Error General svc/proc[1234] message
 *
 * UTC time with milliseconds, severity name, facility (the handle's
 * configured "logfacility" for facility 0, else "facilityN"), service and
 * process names, pid, and the message with every control byte escaped
 * (\n \r \t, others \xHH) so that a record never spans lines.
 *
 * Until "logdir" is configured, records go to standard error; afterwards to
 * "<logdir>/<processname or servicename or 'orv'>.log" (appended, created
 * with mode 0644, directories created), and also to standard error unless
 * the option ZOLOG_OPT_NOSTDERR is set. Records below the handle's "loglevel"
 * threshold (default "Notice") are dropped. Several threads may log at once:
 * every record reaches its file whole, in one write.
 */
#ifndef ORVUTIL_PLATFORM_ZOLOG_H
#define ORVUTIL_PLATFORM_ZOLOG_H

#include "../orv_defs.h"

ORV_BEGIN_DECLS

/* zolog_setoptions bit: do not copy records written to a file to stderr. */
#define ZOLOG_OPT_NOSTDERR 1

/* Writes one record; the format is printf's, and "%m" gives strerror(errno)
 * as errno was at the call. An unknown handle writes to handle 0. */
ORV_API void zolog(int handle, int level, const char *format, ...) ORV_NOEXCEPT ORV_PRINTF(3, 4);

/* Opens a new handle named after the service and process (either may be
 * NULL). Returns the handle (> 0), or 0 on failure. */
ORV_API int zolog_open(const char *servicename, const char *processname) ORV_NOEXCEPT;
/* Closes a handle opened by zolog_open; 0 and unknown handles are ignored. */
ORV_API void zolog_close(int handle) ORV_NOEXCEPT;

/* Configures a handle from (option, value) text pairs ended by two NULLs:
 * { "loglevel", "Debug", "logdir", "logs", NULL, NULL }.
 * Options: "loglevel" (Emergency, Alert, Critical, Error, Warning, Notice,
 * Information, Debug, in any case, or 0-7), "logfacility", "logdir",
 * "servicename", "processname", "rollovertime", "expirytime",
 * "maxlogfilesize", "maxlogfiles", "maxlogsize", "minfreeddiskspace",
 * "flushinterval", "buffersize" (the numeric ones take decimal text).
 * Every known pair is applied; returns 0, or -1 for an unknown handle, an
 * unknown option or a value that does not read (the other pairs still apply). */
ORV_API int zolog_config(int handle, const char *const *pairs) ORV_NOEXCEPT;

/* Sets the process-wide options (ZOLOG_OPT_*); returns the previous ones.
 * Option 0 copies file records to standard error. */
ORV_API int zolog_setoptions(int options) ORV_NOEXCEPT;

/* Flushes every open log file to disk. */
ORV_API void zolog_flush(void) ORV_NOEXCEPT;

/* Test hook: called for every record, before the level threshold applies,
 * with the handle, level and formatted (unescaped) message. NULL removes it. */
typedef void (*zolog_hook)(void *arg, int handle, int level, const char *message);
ORV_API void zolog_set_hook(zolog_hook hook, void *arg) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_ZOLOG_H */
