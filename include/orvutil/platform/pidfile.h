/*
 * Service pid and state files.
 *
 * One file per service, "<piddir>/<service>.pid". The directory is the
 * configuration key "local.piddir" of the default cache (default "run"); a
 * relative piddir is taken under "local.instancedir" (default "."), and a
 * relative instance directory under the current directory, so daemons and
 * the tools that control them should name an absolute instance directory.
 * The directory is created (mode 0755) by the first write.
 *
 * The file is text, one record a line:
 *
 *     pid 1234 8812345                    the service's pid and start time
 *     state ready                         its state text (printable, no blank)
 *     child_process 1240 8812399          a registered pid and its start time
 *
 * The start time is field 22 of /proc/<pid>/stat (clock ticks since boot):
 * with it a reader tells a live service from a stale file whose pid now
 * belongs to another process. 0 means unknown and is never taken as stale.
 *
 * Every change reads the file, changes it and replaces it whole (temporary
 * file, fsync, rename) while holding an advisory lock on the directory, so
 * changes from many processes at once are serialised and none is lost, and a
 * reader, which takes no lock, never sees a half-written file. Files are
 * opened without following symbolic links. A file over 64 KiB, or one that
 * does not parse, is refused as malformed.
 *
 * Service names are 1-200 printable ASCII bytes without '/' and other than
 * "." and ".."; anything else is refused, so a name never leaves the pid
 * directory.
 *
 * Under a service manager that passes NOTIFY_SOCKET, recording the state
 * "ready" also sends "READY=1" and removing the file sends "STOPPING=1" to
 * that datagram socket ('@' at its start names an abstract socket); a
 * failed notification is logged at level 4 and does not change the result.
 */
#ifndef ORVUTIL_PLATFORM_PIDFILE_H
#define ORVUTIL_PLATFORM_PIDFILE_H

#include "../orv_defs.h"

ORV_BEGIN_DECLS

/* Size of the state buffer config_readpidfile fills (text and NUL). */
#define CONFIG_PIDFILE_STATE_SIZE 256

/* Reads the service's pid and, when state is not NULL, its state text (at
 * most 255 bytes and a NUL; "" when the file records none) into a buffer of
 * CONFIG_PIDFILE_STATE_SIZE bytes. Returns 0, or an NSPR error code:
 * PR_FILE_NOT_FOUND_ERROR (no file), PR_INVALID_ARGUMENT_ERROR (bad service
 * name or NULL pid), PR_LOOP_ERROR (the file is a symbolic link),
 * PR_NO_ACCESS_RIGHTS_ERROR, PR_FILE_TOO_BIG_ERROR (over 64 KiB),
 * PR_IO_ERROR (malformed, or another read failure). */
ORV_API int config_readpidfile(const char *service, int *pid, char *state) ORV_NOEXCEPT;

/* Records the calling process as the service with the state text (the
 * registered pids are kept; an earlier file that cannot be used, being
 * malformed, oversized or a symbolic link, is replaced). 0, or -1 with errno set (EINVAL for a bad name
 * or a state that is empty, longer than 255 bytes or holds a blank or a
 * control byte). */
ORV_API int config_writepidfile(const char *service, const char *state) ORV_NOEXCEPT;

/* Registers the calling process under tag (same rules as a state text);
 * the service's pid and state are unchanged, a pid already registered under
 * the tag is not added twice. The service's file must exist (ENOENT
 * otherwise). 0, or -1 with errno set. */
ORV_API int config_appendpidfile(const char *service, const char *tag) ORV_NOEXCEPT;

/* Removes the service's file; 0 also when there was none, -1 with errno set
 * for a bad name or a file that cannot be removed. */
ORV_API int config_removepidfile(const char *service) ORV_NOEXCEPT;

/* The pids registered under tag, as a malloc array ended by 0 in *pids
 * (free it with free()); returns their number. A registered pid that is now
 * held by a younger process (its start time differs) is left out: signalling
 * it would reach a stranger. Returns 0 with *pids NULL when none is
 * registered, -1 with *pids NULL when the file cannot be read. */
ORV_API int config_readpidfile_list(const char *service, int **pids, const char *tag) ORV_NOEXCEPT;

/* 1 when the service's file names a process that is gone or whose pid now
 * belongs to a younger process, 0 when that process runs, -1 when the file
 * cannot be read. */
ORV_API int config_pidfile_stale(const char *service) ORV_NOEXCEPT;

/* The directory of the pid files (a malloc copy; free it with free()), or
 * NULL when memory runs out. */
ORV_API char *config_piddir(void) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_PIDFILE_H */
