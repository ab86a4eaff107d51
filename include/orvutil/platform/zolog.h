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
 * Files. Until "logdir" is configured, records go to standard error. Then the
 * current file is "<logdir>/<name>.log", where name is the "processname", else
 * the "servicename", else "orv" (appended, created with mode 0644, directories
 * created). Records also go to standard error unless ZOLOG_OPT_NOSTDERR is
 * set. A rolled file is the current file renamed to
 * "<logdir>/<name>.log.YYYYMMDDTHHMMSS.uuuuuuZ", the UTC time of the roll to
 * the microsecond (one microsecond later when that name is taken), so that
 * the names of one log sort in time order. "<logdir>/<name>.log.lock" is the
 * lock file that coordinates the processes sharing the log; it is never
 * rolled.
 *
 * Several processes, one log. Each record, or each buffered batch of whole
 * records, goes out in one write(2) on an O_APPEND descriptor while a mutex
 * kept in the lock file (mapped by every process; process-shared and robust,
 * so a holder that dies hands it on) is held; a roll holds it too, and also
 * takes an exclusive flock(2) on the lock file. The lock file also keeps
 * the current file's device and inode with a generation number that every
 * roll changes before it renames; a writer whose descriptor belongs to an
 * older generation reopens by path before it writes. So no record is torn,
 * lost, duplicated or written into a rolled file after its roll, whatever the
 * number of processes and threads, and a process killed at any moment leaves
 * the log readable. The lock file must stay in place while processes use the
 * log.
 *
 * Files moved or deleted by an outside tool. Such a change shows in no
 * shared state, so the path is looked at with stat(2): before a write, when
 * 1 ms (CLOCK_MONOTONIC) or more has passed since any process of the log
 * last looked. A look that finds another file or none there makes every
 * process of the log reopen (a new current file is created). So records go
 * into a file after an outside tool moved or deleted it only when the
 * change falls between the last look and the write, a span that starts at
 * most 1 ms before the writer's turn at the lock (longer only when the
 * writer is held up between its look and its write(2), as any
 * look-then-write has to be); those records are in the moved file, or gone
 * with the deleted one. A file truncated in place stays the current file;
 * the size kept for "maxlogfilesize" follows it at the next look.
 *
 * Options ("zolog_config"), numbers in decimal text; 0 for a limit means no
 * limit:
 *   "loglevel"      threshold: Emergency, Alert, Critical, Error, Warning,
 *                   Notice (default), Information, Debug, in any case, or 0-7.
 *                   Records of a higher severity number are dropped.
 *   "logfacility"   the name written for facility 0 (default "General"); for
 *                   the system log, also the syslog facility: kern, user,
 *                   mail, daemon, auth, syslog, lpr, news, uucp, cron,
 *                   authpriv, ftp, local0-local7 (any case); others are user.
 *   "rollovertime"  seconds: the current file is rolled once it is older
 *                   than this (its age counts from its first record; checked
 *                   when a record is written). Default 86400.
 *   "expirytime"    seconds: rolled files whose roll time is older than this
 *                   are deleted (at each roll and when the log is opened).
 *                   Default 604800.
 *   "maxlogfilesize" bytes: the current file is rolled before a write would
 *                   take it past this size (a record larger than the limit
 *                   still goes out whole, into a fresh file). Default 2097152.
 *   "maxlogfiles"   rolled files kept per log; the oldest go first. Default 10.
 *   "maxlogsize"    bytes of all files of one log together (current and
 *                   rolled); at each roll the oldest rolled files go until
 *                   the rest leaves room for the current file to reach
 *                   "maxlogfilesize". Default 20971520.
 *   "minfreeddiskspace" bytes: below this much free space on the log's file
 *                   system the log stops writing and says so once on standard
 *                   error; it resumes by itself when space returns, and its
 *                   first record then gives the number of records dropped.
 *                   Free space is read at most once a second. Default 5242880.
 *   "buffersize"    0 (default): each record is written at once. Otherwise
 *                   records are kept in a buffer of up to this many bytes and
 *                   written as one batch when the next would not fit, when
 *                   "flushinterval" seconds have passed since the last write
 *                   (checked at each record: the library has no thread of its
 *                   own), at zolog_flush, zolog_config, zolog_close and exit.
 *                   A child made by fork() drops the buffer it inherits (its
 *                   parent writes those records).
 *   "flushinterval" seconds, see "buffersize". Default 60.
 *   "logdir"        the directory; "syslog:" sends every record to the
 *                   system log instead (one datagram per record to the
 *                   /dev/log socket, in syslog(3)'s format
 *                   "<PRI>Mmm dd hh:mm:ss name[pid]: message", PRI the
 *                   facility code plus the level's severity; no buffering,
 *                   no rolling).
 *   "servicename", "processname"  the names in each record and the file name.
 * A change of "logdir", "servicename" or "processname" moves the log to its
 * new file with the next record.
 *
 * A record below its handle's threshold costs a few loads: nothing is
 * formatted and no lock is taken (unless a capture hook is set).
 */
#ifndef ORVUTIL_PLATFORM_ZOLOG_H
#define ORVUTIL_PLATFORM_ZOLOG_H

#include <time.h>

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
/* Writes out a handle's buffer and closes it; handle 0 is only flushed,
 * unknown handles are ignored. */
ORV_API void zolog_close(int handle) ORV_NOEXCEPT;

/* Configures a handle from (option, value) text pairs ended by two NULLs:
 * { "loglevel", "Debug", "logdir", "logs", NULL, NULL } (options above).
 * Every known pair is applied; returns 0, or -1 for an unknown handle, an
 * unknown option or a value that does not read (the other pairs still apply). */
ORV_API int zolog_config(int handle, const char *const *pairs) ORV_NOEXCEPT;

/* Sets the process-wide options (ZOLOG_OPT_*); returns the previous ones.
 * Option 0 copies file records to standard error. */
ORV_API int zolog_setoptions(int options) ORV_NOEXCEPT;

/* Writes out every buffered record, then syncs every open log file to disk. */
ORV_API void zolog_flush(void) ORV_NOEXCEPT;

/* Test hooks. They are process-wide; set them before logging starts and
 * NULL restores the default. */

/* Called for every record, before the level threshold applies, with the
 * handle, level and formatted (unescaped) message. */
typedef void (*zolog_hook)(void *arg, int handle, int level, const char *message);
ORV_API void zolog_set_hook(zolog_hook hook, void *arg) ORV_NOEXCEPT;

/* The clock behind record stamps, roll and expiry times, the flush interval
 * and the free-space check (default: clock_gettime(CLOCK_REALTIME)). */
typedef void (*zolog_clock_hook)(struct timespec *now);
ORV_API void zolog_set_clock(zolog_clock_hook clock) ORV_NOEXCEPT;

/* Free bytes on the file system of a log directory, for
 * "minfreeddiskspace": 0, or -1 when unknown (writing then goes on).
 * Default: statvfs(3), f_bavail * f_frsize. */
typedef int (*zolog_statfs_hook)(const char *dir, unsigned long long *free_bytes);
ORV_API void zolog_set_statfs(zolog_statfs_hook statfs_fn) ORV_NOEXCEPT;

/* The system log's socket for "logdir" "syslog:" (default "/dev/log"); the
 * path is copied. */
ORV_API void zolog_set_syslog_path(const char *path) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_ZOLOG_H */
