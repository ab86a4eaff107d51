/*
 * Process control: starting programs, limits, user and group, the /proc
 * process table, and stopping processes and services.
 *
 * Stops escalate from SIGTERM to SIGKILL. A stop polls with the poll step of
 * cal_service.h ("service.admin.sleeptime") and signals again every
 * "service.admin.stoptime.next" seconds (default 30, read afresh at each
 * stop). "No such process" (ESRCH) is never an error. The service named
 * "store" is signalled as a single process, every other one with its whole
 * process group.
 *
 * Log levels: 3 error, 4 warning, 7 debug trace.
 */
#ifndef ORVUTIL_CAL_EXEC_H
#define ORVUTIL_CAL_EXEC_H

#include <stdint.h>

#include "orv_defs.h"
#include "platform/array.h"

ORV_BEGIN_DECLS

/* One process of the table: its pid and command name (at most 63 bytes). */
typedef struct calexec_proc {
    int32_t pid;
    char name[64];
} calexec_proc;

/* A snapshot of the process table with a cursor; room for 1024 records. */
typedef struct calexec_proclist calexec_proclist;

#define CALEXEC_PROCLIST_SIZE 1024

/* Forks and runs program with argv (execv). The parent gets 0 at once (not
 * the pid), -1 when fork fails; in the child a failed execv returns 0 to
 * the caller, who must then end the child. */
ORV_API int32_t calexec_start(const char *program, char *const argv[]) ORV_NOEXCEPT;
/* The same, then waits for one child: 0 when the one reaped is this child,
 * else -1. */
ORV_API int32_t calexec_start_and_wait(const char *program, char *const argv[]) ORV_NOEXCEPT;
/* Frees *array (a string array, may be NULL) and replaces it with a new one
 * holding "<current directory>/<name>". 0, or -6000 when no array can be
 * made. */
ORV_API int32_t calexec_path(const char *name, array_t **array) ORV_NOEXCEPT;
/* Priority -2 (ignored when refused); the hard descriptor limit raised
 * towards 524288, halved until accepted (the soft one kept); data limits
 * unlimited. The result of the last setrlimit, or -1 when the data limit
 * cannot be read. */
ORV_API int32_t calexec_setlimits(void) ORV_NOEXCEPT;
/* Joins the text pieces (ended by a NULL) into one path and gives it to
 * uid and gid; failures are ignored. */
ORV_API void calexec_fixfile(uint32_t uid, uint32_t gid, ...) ORV_NOEXCEPT;
/* Switches group, then user, by name (NULL skips one). 0; 1 unknown group,
 * 2 setgid refused, 3 unknown user, 4 setuid refused. */
ORV_API int32_t calexec_setusergroup(const char *user, const char *group) ORV_NOEXCEPT;
/* Cleans a command name in place: cut 1 ends it at its first blank,
 * strip_dir non-zero keeps what follows its last '/', strip_ext 1 ends it
 * at its last '.'. */
ORV_API void calexec_stripname(char *name, int32_t cut, int32_t strip_dir, int32_t strip_ext) ORV_NOEXCEPT;
/* Replaces every byte the current locale does not print with '?'; returns
 * text. */
ORV_API char *printable(char *text) ORV_NOEXCEPT;

/* Fills up to capacity records from /proc in directory order; a process
 * whose stat file cannot be read is skipped. Returns the number filled. */
ORV_API int32_t calexec_get_process_info(calexec_proc *records, int32_t capacity) ORV_NOEXCEPT;
/* A new snapshot in *list (NULL when memory runs out); 0. */
ORV_API int32_t calexec_getproclist(calexec_proclist **list) ORV_NOEXCEPT;
/* Frees *list and sets it to NULL; NULL is ignored. */
ORV_API void calexec_freeproclist(calexec_proclist **list) ORV_NOEXCEPT;
/* The first record (the cursor moves there): 0, or -1 when empty. The name
 * points into the list. */
ORV_API int32_t calexec_getfirstproc(calexec_proclist *list, int32_t *pid, char **name) ORV_NOEXCEPT;
/* The next record: 0, or -1 past the end. */
ORV_API int32_t calexec_getnextproc(calexec_proclist *list, int32_t *pid, char **name) ORV_NOEXCEPT;
/* The record under the cursor: 0, or -1 when there is none. */
ORV_API int32_t calexec_getproc(calexec_proclist *list, int32_t *pid, char **name) ORV_NOEXCEPT;
/* The first process (in /proc order) whose name, without arguments and
 * directory, equals name ignoring ASCII case: 0 with *pid set, else -1. */
ORV_API int32_t calexec_findproc(int32_t *pid, const char *name) ORV_NOEXCEPT;

/* 1 when no process pid exists (a zombie still exists), else 0. */
ORV_API int32_t calexec_stopped(int32_t pid) ORV_NOEXCEPT;
/* SIGKILL when kill is 1, else SIGTERM; to the group -pid when group is 1,
 * else to pid alone. 0, or -1 (logged at level 3) when kill fails other
 * than with ESRCH. A pid below 1, or 1 with the group (which would reach
 * every process), is refused with -1. */
ORV_API int32_t calexec_stoppid(int32_t pid, int32_t kill, int32_t group) ORV_NOEXCEPT;
/* Logs at level 7, then calexec_stoppid. */
ORV_API int32_t calexec_stoponce(int32_t pid, int32_t kill, int32_t group) ORV_NOEXCEPT;
/* Signals the service's process, polls until it is gone (signalling again
 * every "service.admin.stoptime.next" seconds) or the limit passes: 0 once
 * gone, -1 otherwise. */
ORV_API int32_t calexec_stop_pid(const char *service, int32_t pid, int32_t limit, int32_t kill) ORV_NOEXCEPT;
/* SIGKILL to the group, 2 seconds' grace: 0 when pid is gone, else -1. */
ORV_API int32_t calexec_forcestop_pid(int32_t pid) ORV_NOEXCEPT;
/* Stops the service's registered children one by one (never their group):
 * the first round with the caller's kill flag, later rounds with SIGKILL,
 * until a round finds none running. The rounds follow each other without
 * sleeping and end after 5 seconds at most (logged at level 4): a child
 * that stays, such as a zombie whose parent does not reap it, cannot hold
 * the caller for ever. limit is not used. Returns 0. */
ORV_API int32_t calexec_stop_children(const char *service, int32_t limit, int32_t kill) ORV_NOEXCEPT;
/* calexec_stop_pid, then SIGKILL to the group when that failed, then the
 * children; removes the pid file after a forced stop (or when kill was 1).
 * 0, or -1 (logged at level 3) when the process is still running. */
ORV_API int32_t calexec_stop(const char *service, int32_t pid, int32_t limit, int32_t kill) ORV_NOEXCEPT;
/* Stops a service by its pid: it gets up to the smaller of limit (plus one
 * poll interval) and "service.admin.stoptime.next" seconds to end, then its
 * group is killed and the pid file removed. 0, or -1 (logged at level 3). */
ORV_API int32_t calservice_stop(const char *service, int32_t pid, int32_t limit) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_EXEC_H */
