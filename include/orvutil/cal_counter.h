/*
 * Counters of a server instance: a thin layer over the counter facility
 * (orvutil/platform/counter.h) that finds the instance's counter registry and
 * counter configuration, creates objects and instances, keeps lists of what
 * it created so that everything is closed at process exit, and logs failures.
 *
 * The registry is the directory "local.instance.counter.path" (default
 * "counter"), relative to "local.instancedir" (default "."); the
 * configuration is "<local.instancedir>/config/counter.conf", re-read for
 * every object created. Both keys come from the default configuration cache.
 *
 * Failures give a 0 handle or a non-zero status (the facility's COUNTER_E*),
 * and are logged to the default log at level 52:
 *     "Unable to create counter instance (%s): %d"
 *     "Unable to get counter handle (%s): %d"
 *     "Unable to delete counter object (o_handle=0x%x): %d"
 *     "Unable to delete counter instance (%s): %d"
 *
 * Like the rest of the process-wide state, the lists are set up by one
 * thread; the counters themselves are then used from any thread through the
 * facility's hot path (counter_add and friends).
 */
#ifndef ORVUTIL_CAL_COUNTER_H
#define ORVUTIL_CAL_COUNTER_H

#include "orv_defs.h"
#include "platform/counter.h"

ORV_BEGIN_DECLS

/* Once per process (again after calcounter_uninit): initialises the facility,
 * creates the lists and registers calcounter_uninit with atexit. */
ORV_API void calcounter_init(void) ORV_NOEXCEPT;
/* Closes every instance, then every object the lists hold, and drops the
 * lists. Runs at exit; calling it earlier is allowed. */
ORV_API void calcounter_uninit(void) ORV_NOEXCEPT;

/* Creates or attaches to the object called name, as configured. flags and
 * mode are passed through to countermsg_create_instance: flags 0 or
 * COUNTER_CREATE_FRESH, mode the permission bits of a new file (0: 0644).
 * The object handle, or 0. */
ORV_API counterobject *calcounter_createobject(const char *name, int flags, int mode) ORV_NOEXCEPT;
/* As calcounter_createobject (mode 0644), with 100 instance slots for a new
 * file, and opens the object's "global" instance. *object (when object is
 * not NULL) receives the object handle. The instance handle, or 0. */
ORV_API counterinstance *calcounter_createinstance(const char *name, int flags, counterobject **object) ORV_NOEXCEPT;
/* Opens (or claims) the instance called name of object. Names whose first
 * six characters are "global" in any case are refused (0): the shared
 * instance comes from calcounter_createinstance only. */
ORV_API counterinstance *calcounter_openinstance(counterobject *object, const char *name) ORV_NOEXCEPT;
/* The handle of the counter called name, or 0. */
ORV_API counterhandle calcounter_getcounter(counterobject *object, const char *name) ORV_NOEXCEPT;
/* Drops object from the list and deletes its "global" instance, which
 * removes the object's file from the registry. The handle itself stays valid
 * until calcounter_uninit. The facility's status. */
ORV_API int calcounter_deleteobject(counterobject *object) ORV_NOEXCEPT;
/* Drops instance from the list and deletes the instance called name; when
 * the list held exactly one instance, that one is taken to be the shared one
 * and "global" is deleted instead (the object's file goes), deliberately.
 * The instance handle stays valid until calcounter_uninit. The facility's status. */
ORV_API int calcounter_deleteinstance(counterobject *object, counterinstance *instance, const char *name) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_COUNTER_H */
