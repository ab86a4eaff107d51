/*
 * Service state and control.
 *
 * A daemon records its life in its pid file (orvutil/platform/pidfile.h):
 * calservice_set_started ("init") as it starts, calservice_set_ready
 * ("ready") once it serves, calservice_set_stopped (file removed) as it
 * ends; the workers it forks call calservice_append_child_pid. Tools read
 * the state, wait for it with a bounded poll, send "refresh" and stop the
 * service (calservice_stop, in cal_exec.h).
 *
 * Waits are counted in poll steps, not by the clock: each step sleeps the
 * configured "service.admin.sleeptime" (default 1 second, read at every
 * step; a value below 1 counts as 1, or a wait would never end) and a step taken when the elapsed count equals the
 * limit still sleeps, so a wait may last up to one interval beyond its limit.
 *
 * Log levels: 2 fatal, 3 error, 4 warning, 37 the "result=OK" line of a
 * refresh.
 */
#ifndef ORVUTIL_CAL_SERVICE_H
#define ORVUTIL_CAL_SERVICE_H

#include <stdint.h>

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Service states of calservice_get_state. */
#define CALSERVICE_STATE_INIT    0 /* state text "init" */
#define CALSERVICE_STATE_READY   1 /* state text "ready" */
#define CALSERVICE_STATE_STOPPED 2 /* no readable pid file */
#define CALSERVICE_STATE_UNKNOWN 3 /* any other text (logged at level 4) */

/* Records the calling process with the state "init"; the pid file call's
 * result (0 or -1). */
ORV_API int32_t calservice_set_started(const char *service) ORV_NOEXCEPT;
/* The same with "ready". */
ORV_API int32_t calservice_set_ready(const char *service) ORV_NOEXCEPT;
/* Removes the pid file; its result. */
ORV_API int32_t calservice_set_stopped(const char *service) ORV_NOEXCEPT;
/* Registers the calling process as a child of the service (tag
 * "child_process"); its result. */
ORV_API int32_t calservice_append_child_pid(const char *service) ORV_NOEXCEPT;

/* Fills *pid and *state (CALSERVICE_STATE_*) and returns 0; -1 with pid 0
 * and state 2 when the pid file cannot be read. */
ORV_API int32_t calservice_get_state(const char *service, int32_t *pid, int32_t *state) ORV_NOEXCEPT;

/* One poll step: -1 at once when *elapsed > limit, else sleeps the interval,
 * adds it to *elapsed and returns 0. */
ORV_API int32_t calservice_wait_sleep(int32_t limit, int32_t *elapsed) ORV_NOEXCEPT;
/* 0 once the pid file says "ready" (*pid holds its pid; pid may be NULL),
 * -1 on time-out. */
ORV_API int32_t calservice_wait_ready(const char *service, int32_t limit, int32_t *pid) ORV_NOEXCEPT;
/* 0 once the pid file is gone, -1 on time-out. */
ORV_API int32_t calservice_wait_stopped(const char *service, int32_t limit) ORV_NOEXCEPT;

/* Sends a command to the service. The only command is "refresh": SIGHUP to
 * the service's process group (a group that no longer exists counts as
 * done). 0 on success, 1 on any failure; any other command, "stop"
 * included, is refused with 1 and sends nothing (services are stopped with
 * calservice_stop, which relies on that refusal). */
ORV_API int32_t calservice_signal(const char *service, const char *command) ORV_NOEXCEPT;

/* Switches the process to the group, then the user, that own path. 0; or 70
 * when the file cannot be read or the switch fails, 64 when the file is
 * owned by root; the reason goes to standard error and the caller should
 * exit with the status. */
ORV_API int32_t calservice_check_id_permissions(const char *path) ORV_NOEXCEPT;

/* Changes to the "lib" directory beside the program's directory:
 * <dir of argv0>/../lib, or .//../lib for a bare name. Nothing happens for
 * a NULL or one-byte argv0, and a failing chdir is ignored. */
ORV_API void calservice_changedir_lib(const char *argv0) ORV_NOEXCEPT;

/* Size of the buffer calservice_setup_serverconf fills. */
#define CALSERVICE_PATH_SIZE 1024

/* The server configuration path into out (CALSERVICE_PATH_SIZE bytes, never
 * overrun): an absolute conf as it is; else, with an argv0 holding a
 * directory, "<cwd>/config/<conf>" (or "<cwd>/config/orv.conf" for a NULL
 * conf) after changing to the program's directory; else "config/orv.conf".
 * Returns the length written by the final copy or format call (as
 * snprintf, so a cut path returns more than 1023), -1 for a NULL out. */
ORV_API int32_t calservice_setup_serverconf(const char *argv0, char *out, const char *conf) ORV_NOEXCEPT;

/* Prints "Fatal error <status>: <message>" to standard error, logs it at
 * level 2, flushes the logs and exits with status. */
ORV_API void calservice_exit_fatal(const char *message, int32_t status) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_SERVICE_H */
