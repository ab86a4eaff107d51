/*
 * Configuration files: an editable in-memory copy of one "name = value"
 * file. calconf_Open reads the file through a private configuration cache
 * and its file read driver; the entries are edited in memory and written
 * back either through the file write driver (calconf_Flush, calconf_Close)
 * or by a safe rewrite of the whole file, sorted by name, through a
 * temporary file and a rename (calconf_CloseQuick).
 *
 * File syntax (read by the platform's file driver):
 *
 *     # comment                    (a line whose first non-blank is '#')
 *     name = value                 (blanks around '=' and at the end ignored)
 *     name = "quoted value"        (escapes \" \\ \r \t \n inside quotes)
 *      ,second value               (another value of the entry above)
 *
 * Written lines (calconf_File_Converttoline): "name = value", the value
 * between double quotes when it holds a tab, line feed, carriage return,
 * blank, double quote, comma or backslash ('!' and other control bytes never
 * force quotes); inside quotes '"' and '\' are escaped with a backslash and
 * CR, tab and LF are written as \r, \t, \n. Further values follow on
 * continuation lines after the separator "\n ,". Every value round-trips
 * byte for byte. A name is written as it stands, so a name can be written
 * only when the file can give it back: not empty, without '=', line feed or
 * carriage return, not starting with '#', a blank or a tab, and not ending
 * with a blank or a tab; calconf_Modify refuses other names.
 *
 * Names compare as configuration names (ASCII case ignored). A name may
 * repeat: look-ups and edits act on the last entry of that name.
 *
 * Status codes: CALCONF_OK (0) success, CALCONF_E_FAIL (-1) failure, and
 * CALCONF_NOT_FOUND (1) for calconf_Delete when nothing matched. This module logs nothing itself; the platform's file
 * driver reports a file it cannot read (level 3) and skipped malformed lines
 * (level 4). Strings handed out are allocated with
 * malloc: free them with free(). A handle is used by one thread at a time.
 */
#ifndef ORVUTIL_CAL_CONF_H
#define ORVUTIL_CAL_CONF_H

#include "orv_defs.h"
#include "platform/array.h"
#include "platform/config.h"

ORV_BEGIN_DECLS

#define CALCONF_OK        0
#define CALCONF_E_FAIL    (-1)
#define CALCONF_NOT_FOUND 1 /* calconf_Delete: nothing matched */

/* An open configuration file. The fields may be read; change them only
 * through the functions below (the look-up index relies on it). Look-ups
 * take constant time on average: the index is built on the first look-up
 * and kept up to date by the edits (a delete rebuilds it on the next
 * look-up). */
typedef struct calconf_handle {
    char *filename;                  /* copy of the path given to calconf_Open (may be NULL) */
    array_t *names;                  /* string array of entry names */
    array_t *values;                 /* string array of values, parallel to names */
    int dirty;                       /* set by every edit, cleared by a successful flush */
    config_cache *cache;             /* the cache the file was read into */
    config_readdriver *readdriver;   /* the file read driver (NULL once released) */
    config_writedriver *writedriver; /* the file write driver (NULL once released) */
    struct calconf_index *index;     /* private: name look-up index, built on demand */
} calconf_handle;

/* Opens path: *out receives a new handle holding every entry of the file
 * in file order (the first value of each). 0 on success. -1 when out is
 * NULL, memory runs out or the file cannot be read (a missing file
 * included): *out then still holds the handle when one was allocated, with
 * the entries read so far and no drivers, and it must be closed. A handle
 * whose file was missing can be filled and written with calconf_CloseQuick,
 * which creates the file. */
ORV_API int calconf_Open(const char *path, calconf_handle **out) ORV_NOEXCEPT;
/* The value of the last entry called name (owned by the handle, valid until
 * it changes), or NULL. */
ORV_API const char *calconf_Get(calconf_handle *handle, const char *name) ORV_NOEXCEPT;
/* A malloc copy of calconf_Get's value, or NULL. */
ORV_API char *calconf_GetCopy(calconf_handle *handle, const char *name) ORV_NOEXCEPT;
/* Gives the last entry called name the value, or appends the entry. 0, or
 * -1 for a NULL handle, name or value, a name the file cannot give back (see
 * above) or no memory (the handle is then unchanged). */
ORV_API int calconf_Modify(calconf_handle *handle, const char *name, const char *value) ORV_NOEXCEPT;
/* Deletes entries called name: mode 0 the last one only, mode 1 every one
 * (taking the first each time), any other mode every one (taking the last
 * each time). 0 when something was deleted, 1 when nothing matched (the
 * handle then stays clean), -1 for a NULL handle. */
ORV_API int calconf_Delete(calconf_handle *handle, const char *name, int mode) ORV_NOEXCEPT;
/* Writes every entry in order through the write driver, rewriting the file
 * in place. A clean handle writes nothing. A handle with no entries left
 * truncates the file to empty. 0, or -1 (the handle stays dirty) for a NULL
 * handle, a released driver or a failed write. */
ORV_API int calconf_Flush(calconf_handle *handle) ORV_NOEXCEPT;
/* Writes every entry, one line each, to fd, ordered by their lines compared
 * with calconf_CompareOptions, except that entries of the same name keep
 * their order (so the last one still wins when read back). Clears dirty.
 * 0, or -1 on a NULL handle, no memory or a failed write. */
ORV_API int calconf_FlushQuick(calconf_handle *handle, int fd) ORV_NOEXCEPT;
/* Flushes (unless noFlush; the flush result is ignored), releases the
 * drivers, frees the handle with its cache and file name, and sets *address
 * to NULL. 0; -1 when address or *address is NULL. */
ORV_API int calconf_Close(calconf_handle **address, int noFlush) ORV_NOEXCEPT;
/* Releases the drivers, and unless noFlush, when the handle is dirty,
 * rewrites the file safely: the entries go to "<file>.tmp.<thread id>"
 * beside the file (created with mode 0666 trimmed by the umask), which is
 * forced to disk and renamed over the file. The old file stays whole until
 * that rename. If the temporary cannot be created, -1 is returned with the
 * handle kept (its drivers released) and *address unchanged: close it again
 * to free it. If a later step fails the temporary is removed, the old file
 * stays and the result is -1. Otherwise the handle is freed, *address set to
 * NULL, and the result is 0 (also when nothing had to be written). -1 for a
 * NULL address or handle, or a dirty handle without a file name. */
ORV_API int calconf_CloseQuick(calconf_handle **address, int noFlush) ORV_NOEXCEPT;

/* The text of one entry: "name = " followed by the values of the
 * NULL-terminated list (NULL is an empty list), each quoted and escaped as
 * above, separated by "\n ,", and a final "\n" when lineEnd is non-zero.
 * The buffer, allocated zero-filled with malloc (free it with free()), holds
 * strlen(name) + 6 bytes, plus one per value byte and one per escaped byte,
 * plus 2 per quoted value, plus 4 per separator. NULL for a NULL name, no
 * memory, or a size beyond SIZE_MAX. */
ORV_API char *calconf_File_Converttoline(const char *name, const char *const *values, int lineEnd) ORV_NOEXCEPT;
/* Sort order for array_qsort over an array of lines: a and b point at
 * `char *` elements, compared with ASCII case ignored; a NULL on either side
 * compares equal. */
ORV_API int calconf_CompareOptions(const void *a, const void *b) ORV_NOEXCEPT;
/* Scan callback of calconf_Open (a config_scanproc): appends the name and
 * the first value to the handle given as arg. 0, or -1 when memory runs out
 * (the scan then stops and calconf_Open fails rather than load part of the
 * file). */
ORV_API int calconf_scanproc(const char *name, const char *const *values, int nvalues, void *arg) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_CONF_H */
