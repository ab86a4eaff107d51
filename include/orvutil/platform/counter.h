/*
 * Shared-memory counters.
 *
 * Server processes publish running counts that other processes read live.
 * A counter object is a named set of 64-bit counters; an instance is one
 * named row of those counters (one per process, per listener, ...). The
 * "global" instance of every object always exists and is shared by all.
 *
 * Configuration. The counters of each object are declared in a file read
 * through the configuration cache (normally <instancedir>/config/counter.conf),
 * one entry per counter, in the order the rows are laid out:
 *
 *     # object.counter = kind [help text]
 *     http.requests = count Requests served since the server started
 *     http.active   = gauge Connections open now
 *
 * The object name runs up to the first '.', the counter name is the rest.
 * Both are 1 to 31 bytes of letters, digits, '_', '-' and (in counter names)
 * '.'. The kind is "count" (monotonic: only added to) or "gauge" (set, or
 * added to with negative amounts; read as signed), in any case. The help
 * text is optional and cut to COUNTER_HELP_SIZE - 1 bytes. An entry that
 * does not read, or repeats a counter, is skipped and logged at level 4.
 * An object has at most COUNTER_MAX_COUNTERS counters.
 *
 * Registry. A directory of one file per object, "<object>.cnt", each a
 * self-describing memory-mapped file: a header (magic, layout version,
 * generation, sizes, the object name), the counters' names, kinds and help
 * texts, the instance slots (state, owner pid and owner start time, name),
 * then one row of values per slot, each row on its own cache lines. A reader
 * needs no configuration. Files are built under a temporary name
 * ".<object>.cnt.<pid>" and renamed into place only once complete, so a
 * crash at any point leaves either no file, the previous one, or the new one;
 * a temporary file left by a crash is never read (and is overwritten by the
 * next creator with that pid). Every re-creation gives the file a new
 * generation, so a reader holding an old mapping can tell that it must open
 * the object again (counterobject_changed).
 *
 * Instances. Slots are claimed and released with atomic operations on the
 * mapping. Opening an instance by a name that exists attaches to that row;
 * otherwise a free slot is claimed, and when none is free a slot whose owner
 * has died (its pid is gone, or now belongs to a process that started at
 * another time) is taken over. A slot's values are zeroed when it is
 * claimed. Closing an instance handle keeps the slot and its values for
 * readers; counterinstance_delete frees the slot.
 *
 * Hot path. counter_add / counter_set / counter_get are single atomic
 * operations on the mapped memory through a counter handle resolved once with
 * counterobject_getcounterinfo: no lock, no system call, no allocation, not
 * even a call (they are inline; counterinstance_add / _set / _get are the
 * same as exported functions). They may run on any number of threads and
 * processes at once.
 *
 * Threads: the hot path and the readers' snapshot are safe everywhere; the
 * other calls on one handle are made by one thread at a time. Instance
 * handles must be closed before their object handle.
 *
 * Status codes: 0 success, or one of COUNTER_E* (negative).
 */
#ifndef ORVUTIL_PLATFORM_COUNTER_H
#define ORVUTIL_PLATFORM_COUNTER_H

#include <stdint.h>

#include "../orv_defs.h"
#include "config.h"

ORV_BEGIN_DECLS

#define COUNTER_NAME_SIZE     32   /* object, counter and instance names, NUL included */
#define COUNTER_HELP_SIZE     128  /* help texts, NUL included */
#define COUNTER_MAX_COUNTERS  1024 /* counters per object */
#define COUNTER_MAX_SLOTS     4096 /* instance slots per object */
#define COUNTER_DEFAULT_SLOTS 64   /* slots when the creator asks for 0 */

#define COUNTER_KIND_COUNT 0 /* monotonic count */
#define COUNTER_KIND_GAUGE 1 /* a level that goes up and down */

#define COUNTER_EINVAL    (-1) /* bad argument or name */
#define COUNTER_ENOMEM    (-2) /* out of memory */
#define COUNTER_EIO       (-3) /* the file or directory cannot be created, opened or mapped */
#define COUNTER_ENOTFOUND (-4) /* no such object, instance or counter */
#define COUNTER_EFOREIGN  (-5) /* not a counter file, or another layout version */
#define COUNTER_ECORRUPT  (-6) /* truncated file, or a header that does not fit it */
#define COUNTER_EFULL     (-7) /* every instance slot has a live owner */

/* Flags of countermsg_create_instance. */
#define COUNTER_CREATE_FRESH 1 /* re-create the file (new generation, zero values) even when a usable one exists */

typedef struct countermsg_registry countermsg_registry;
typedef struct counterobject counterobject;
typedef struct counterinstance counterinstance;
/* A counter of an object: its position + 1, so 0 is never a counter. */
typedef unsigned long counterhandle;

/* Prepares the facility; 0 (kept for callers that check it). */
ORV_API int counterlib_init(void) ORV_NOEXCEPT;
/* A short English text for a status. */
ORV_API const char *counter_strerror(int status) ORV_NOEXCEPT;

/* The registry directory at path; a relative path is taken under the
 * instance directory ("local.instancedir" of the default configuration
 * cache, default "."), and NULL means "local.instance.counter.path" (default
 * "counter"). With create non-zero the directory and its parents are made.
 * NULL when the directory does not exist (and could not be made) or memory
 * runs out. */
ORV_API countermsg_registry *countermsg_get_registry(const char *path, int create) ORV_NOEXCEPT;
ORV_API void countermsg_free_registry(countermsg_registry *registry) ORV_NOEXCEPT;
/* The registry's directory (owned by the registry). */
ORV_API const char *countermsg_registry_path(const countermsg_registry *registry) ORV_NOEXCEPT;

/* Reads a counter configuration file into a new cache that holds its
 * entries and no driver; free it with config_freecache. A missing or
 * unreadable file gives an empty cache (no object is configured); NULL only
 * when memory runs out. */
ORV_API config_cache *countermsg_open_config(const char *path) ORV_NOEXCEPT;

/* Creates or attaches to the file of object name in the registry, with the
 * counters config declares for it, and optionally opens an instance.
 * - flags: 0 attaches to an existing file whose counters (names, kinds and
 *   help texts, in order) are those configured, keeping its values, and
 *   re-creates it otherwise; COUNTER_CREATE_FRESH always re-creates it.
 * - mode: permission bits of a new file (0 gives 0644).
 * - instance, slots: with instance non-NULL, that instance is opened too
 *   (as counterinstance_open) and handed back in *inst. slots is the number
 *   of instance slots of a new file (0 gives COUNTER_DEFAULT_SLOTS; at most
 *   COUNTER_MAX_SLOTS); an attached file keeps its own.
 * *obj (and *inst) receive handles, or NULL on failure. Returns 0 or a
 * status: COUNTER_ENOTFOUND when config declares no counter for name. */
ORV_API int countermsg_create_instance(const char *name, int flags, int mode, const char *instance, int slots,
                                       counterobject **obj, counterinstance **inst, config_cache *config,
                                       countermsg_registry *registry) ORV_NOEXCEPT;

/* Calls proc with the name of every object file of the registry (in no
 * particular order) until it returns non-zero, which is then returned;
 * otherwise 0, or COUNTER_EIO when the directory cannot be read. */
typedef int (*counter_listproc)(const char *object, void *arg);
ORV_API int countermsg_list_objects(countermsg_registry *registry, counter_listproc proc, void *arg) ORV_NOEXCEPT;

/* Maps the existing file of object name for reading: 0 or a status
 * (COUNTER_ENOTFOUND, COUNTER_EFOREIGN, COUNTER_ECORRUPT, COUNTER_EIO). */
ORV_API int counterobject_open(countermsg_registry *registry, const char *name, counterobject **obj) ORV_NOEXCEPT;
/* Unmaps and frees; NULL is ignored. */
ORV_API void counterobject_close(counterobject *obj) ORV_NOEXCEPT;
ORV_API const char *counterobject_name(const counterobject *obj) ORV_NOEXCEPT;
ORV_API uint64_t counterobject_generation(const counterobject *obj) ORV_NOEXCEPT;
/* 1 when the object's file has been removed or re-created since obj was
 * mapped (open it again to follow), else 0. */
ORV_API int counterobject_changed(const counterobject *obj) ORV_NOEXCEPT;
ORV_API int counterobject_counters(const counterobject *obj) ORV_NOEXCEPT;
ORV_API int counterobject_slots(const counterobject *obj) ORV_NOEXCEPT;
/* The name, kind and help text (owned by obj) of the counter at index
 * 0..counters-1; 0 or COUNTER_ENOTFOUND. Any out pointer may be NULL. */
ORV_API int counterobject_counterat(const counterobject *obj, int index, const char **name, int *kind,
                                    const char **help) ORV_NOEXCEPT;
/* The handle of the counter called name (ASCII case ignored), with its kind,
 * help text and index; 0 or COUNTER_ENOTFOUND. Any out pointer but handle
 * may be NULL. */
ORV_API int counterobject_getcounterinfo(const counterobject *obj, const char *name, counterhandle *handle, int *kind,
                                         const char **help, int *index) ORV_NOEXCEPT;
/* Reads every instance in use: names[i] receives the name of instance i and
 * values[i * counters + c] its counter c, for up to max instances (global
 * first). Returns the number of instances in use (which may exceed max:
 * only max are written), or a status. Each value is read atomically; the
 * row is not one instant (writers do not pause). */
ORV_API int counterobject_snapshot(const counterobject *obj, char (*names)[COUNTER_NAME_SIZE], uint64_t *values,
                                   int max) ORV_NOEXCEPT;

/* Opens (attaching or claiming, see above) the instance called name of a
 * writable object; "global" gives the shared row. flags is reserved (0).
 * 0 or a status (COUNTER_EFULL, COUNTER_EINVAL for a read-only object or a
 * bad name). */
ORV_API int counterinstance_open(counterobject *obj, const char *name, int flags, counterinstance **inst) ORV_NOEXCEPT;
/* Frees the handle; the slot and its values stay. NULL is ignored. */
ORV_API void counterinstance_close(counterinstance *inst) ORV_NOEXCEPT;
/* Frees the slot of the instance called name so that another may take it.
 * "global" removes the object's file from the registry instead (mappings
 * already made stay usable; readers see the object gone). 0 or a status. */
ORV_API int counterinstance_delete(counterobject *obj, const char *name) ORV_NOEXCEPT;

/* The hot path, as exported functions. An unknown handle does nothing (get
 * answers 0). add takes a signed amount: gauges go down with negative ones. */
ORV_API void counterinstance_add(counterinstance *inst, counterhandle counter, int64_t amount) ORV_NOEXCEPT;
ORV_API void counterinstance_set(counterinstance *inst, counterhandle counter, uint64_t value) ORV_NOEXCEPT;
ORV_API uint64_t counterinstance_get(const counterinstance *inst, counterhandle counter) ORV_NOEXCEPT;

/* An instance handle is public so that the hot path can be inline: a call
 * into the library would cost about as much as the atomic add itself. */
struct counterinstance {
    uint64_t *row;      /* the instance's values in the mapping */
    uint64_t ncounters; /* valid counter handles are 1..ncounters */
};

#if defined(__GNUC__)
static inline void counter_add(counterinstance *inst, counterhandle counter, int64_t amount) {
    if (inst && counter - 1 < inst->ncounters)
        __atomic_fetch_add(&inst->row[counter - 1], (uint64_t)amount, __ATOMIC_RELAXED);
}
static inline void counter_set(counterinstance *inst, counterhandle counter, uint64_t value) {
    if (inst && counter - 1 < inst->ncounters) __atomic_store_n(&inst->row[counter - 1], value, __ATOMIC_RELAXED);
}
static inline uint64_t counter_get(const counterinstance *inst, counterhandle counter) {
    return inst && counter - 1 < inst->ncounters ? __atomic_load_n(&inst->row[counter - 1], __ATOMIC_RELAXED) : 0;
}
#else
#define counter_add counterinstance_add
#define counter_set counterinstance_set
#define counter_get counterinstance_get
#endif

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_COUNTER_H */
