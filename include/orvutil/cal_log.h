/*
 * Logging set-up: opens the process's log handles, configures each from the
 * default configuration cache with fixed defaults, re-reads them after the
 * configuration is reloaded, and closes them at exit.
 *
 * Keys (defaults): "logfile.loglevel" (Notice), "logfile.logfacility"
 * (General), "logfile.rollovertime" (86400), "logfile.expirytime" (604800),
 * "logfile.maxlogfilesize" (2097152), "logfile.maxlogfiles" (10),
 * "logfile.maxlogsize" (20971520), "logfile.minfreediskspace" (5242880, passed
 * to the facility as its option "minfreeddiskspace"), "logfile.flushinterval"
 * (60), "logfile.buffersize" (0), "logfile.logdir" (logs). The meaning of
 * each option is the facility's (orvutil/platform/zolog.h).
 *
 * No errors are reported. Before callog_init (or callog_open, which
 * initialises) every call does nothing and answers 0. The state is
 * process-wide and unlocked: set up logging from the main thread at start.
 */
#ifndef ORVUTIL_CAL_LOG_H
#define ORVUTIL_CAL_LOG_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Initialises once: registers callog_uninit with atexit, opens a handle for
 * the service and process and keeps it in the list, applies the default
 * configuration to handle 0 (the default log, which the library writes to;
 * not to the new handle), then callog_stderr(stderr_flag). Returns the new
 * handle, or 0 when already initialised or the open failed. */
ORV_API int callog_init(const char *servicename, const char *processname, int stderr_flag) ORV_NOEXCEPT;

/* Once initialised: opens a handle, keeps it and applies the default
 * configuration to it; returns it (0 when the open failed). Before: calls
 * callog_init(servicename, processname, 0) and returns 0. */
ORV_API int callog_open(const char *servicename, const char *processname) ORV_NOEXCEPT;

/* Closes a handle opened here and drops it from the list; other handles
 * (0 included) are left alone. */
ORV_API void callog_close(int handle) ORV_NOEXCEPT;

/* Passes one (option, value) pair to zolog_config; its result. */
ORV_API int callog_config(int handle, const char *name, const char *value) ORV_NOEXCEPT;

/* Passes "logdir" (key "logfile.logdir", default "logs"), "servicename" and
 * "processname" to the handle, then callog_refresh_config(handle). */
ORV_API void callog_default_config(int handle, const char *servicename, const char *processname) ORV_NOEXCEPT;

/* Reads the ten keys above (all but "logfile.logdir") with their defaults
 * and passes them to the handle in one zolog_config call; its result. */
ORV_API int callog_refresh_config(int handle) ORV_NOEXCEPT;

/* Refreshes every handle of the list in opening order, then handle 0. Call it
 * after the configuration has been reloaded (config_reloaddefault). */
ORV_API void callog_refresh(void) ORV_NOEXCEPT;

/* all non-zero: callog_refresh(); zero: handle 0 only. */
ORV_API void callog_refresh_choice(int all) ORV_NOEXCEPT;

/* A non-zero flag copies file records to standard error
 * (zolog_setoptions(0)), zero stops it (zolog_setoptions(1)): the inversion
 * is the facility's convention. Returns zolog_setoptions's result. */
ORV_API int callog_stderr(int flag) ORV_NOEXCEPT;

/* Clears the initialised state, closes every handle of the list and drops
 * the list. Registered with atexit by callog_init. */
ORV_API void callog_uninit(void) ORV_NOEXCEPT;

/* The handle list's search comparator: each argument carries a handle as a
 * pointer-sized integer ((void *)(intptr_t)handle); -1, 0 or 1 as the first
 * is below, equal to or above the second. */
ORV_API int callog_find(const void *a, const void *b) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_LOG_H */
