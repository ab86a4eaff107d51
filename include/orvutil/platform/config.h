/*
 * Configuration cache and configuration file drivers.
 *
 * A cache holds entries read by its read drivers: each entry is a name and
 * one or more text values. Names compare as configuration names (ASCII case
 * ignored). A name may repeat: config_scan_config reports every entry in the
 * order the drivers read them, and the look-ups see the last one.
 *
 * File syntax read by the file driver and written by the write driver:
 *
 *     # comment                    (a line whose first non-blank is '#')
 *     name = value                 (blanks around '=' are ignored)
 *     name = "quoted value"        (escapes \" \\ \r \t \n inside quotes)
 *      ,second value               (a line starting with a blank and a comma
 *                                   adds another value to the entry above)
 *
 * An unquoted value runs to the end of the line with trailing blanks removed.
 * Blank lines are ignored. A line that does not parse (no '=', an empty name,
 * an unterminated quote, text after a closing quote, a continuation with no
 * entry above, a NUL byte) is skipped and reported through zolog at level 4
 * with the file name and line number.
 *
 * Look-ups are O(1) on average and take no lock. Readers may run on several
 * threads while one thread runs config_fetch: a fetch builds a new set of
 * entries and publishes it whole, and the texts of earlier sets stay valid
 * until config_freecache. A cache therefore keeps every different set it
 * has read; a fetch that reads the same entries again keeps nothing new, so
 * periodic reloads of an unchanged file cost no memory. Two fetches at once, or a fetch racing
 * config_freecache, need the caller's exclusion; the default cache's reload
 * provides it.
 */
#ifndef ORVUTIL_PLATFORM_CONFIG_H
#define ORVUTIL_PLATFORM_CONFIG_H

#include "../orv_defs.h"

ORV_BEGIN_DECLS

typedef struct config_cache config_cache;
typedef struct config_readdriver config_readdriver;
typedef struct config_writedriver config_writedriver;

/* A read driver: a table of operations, in this slot order. The file driver
 * returned by config_readdriver_fileinit is one of these followed by its own
 * private data. */
struct config_readdriver {
    /* slot 1: replace the driver's entries in the cache with a fresh read;
     * 0, or -1 when the source cannot be read. */
    int (*fetch)(config_readdriver *self, config_cache *cache);
    /* slot 2: release the driver. */
    void (*release)(config_readdriver *self);
    /* slot 3: 1 when the source changed since the last fetch, else 0. */
    int (*changed)(config_readdriver *self);
};

/* A write driver, in this slot order. */
struct config_writedriver {
    /* slot 1: write one entry. *scratch must be 0 for the first entry of a
     * write-out: the file is then truncated and restarted, and the driver sets
     * *scratch non-zero; later entries with the same scratch word are appended
     * after it. Returns 0, or non-zero on failure. The file is rewritten in
     * place (not atomically); write through a temporary file and rename for
     * an atomic replacement. */
    int (*write_entry)(config_writedriver *self, const char *name, const char *value, int *scratch);
    /* slot 2: force what was written to disk; 0 or -1. */
    int (*sync)(config_writedriver *self);
    /* slot 3: the path the driver writes (owned by the driver). */
    const char *(*path)(config_writedriver *self);
    /* slot 4: release the driver. */
    void (*release)(config_writedriver *self);
};

/* Scan callback: one entry, its values (nvalues >= 1, NULL-terminated) and
 * the caller's argument. A non-zero result stops the scan and is returned by
 * config_scan_config. */
typedef int (*config_scanproc)(const char *name, const char *const *values, int nvalues, void *arg);

/* A new empty cache, or NULL. */
ORV_API config_cache *config_newcache(void) ORV_NOEXCEPT;
/* Frees the cache and its entries. The drivers registered with it are not
 * released: their creators release them (slot 2). NULL is ignored. */
ORV_API void config_freecache(config_cache *cache) ORV_NOEXCEPT;
/* Registers a read driver. position 0 adds it after the others; a later
 * driver's entries come later in a scan and so win a look-up. 0 or -1. */
ORV_API int config_adddriver(config_cache *cache, int position, config_readdriver *driver) ORV_NOEXCEPT;
/* Reads every driver again, in order, into a fresh set of entries that then
 * replaces the old one. 0, or -1 when a driver fails: the cache then keeps
 * the entries it had. */
ORV_API int config_fetch(config_cache *cache) ORV_NOEXCEPT;
/* Adds one entry (name and nvalues >= 1 values, all copied) after the
 * others. Read drivers call it from their fetch slot; outside a fetch it adds
 * to the cache's current entries. 0, or -1 for bad arguments or no memory. */
ORV_API int config_add_entry(config_cache *cache, const char *name, const char *const *values,
                             int nvalues) ORV_NOEXCEPT;
/* Calls proc for every entry in order. flags is reserved (pass 0).
 * Returns 0, or the first non-zero result of proc, or -1 for a NULL cache. */
ORV_API int config_scan_config(config_cache *cache, config_scanproc proc, int flags, void *arg) ORV_NOEXCEPT;

/* A file driver for path, or NULL (NULL path or no memory). The file is
 * only opened by fetch / write_entry. */
ORV_API config_readdriver *config_readdriver_fileinit(const char *path) ORV_NOEXCEPT;
ORV_API config_writedriver *config_writedriver_fileinit(const char *path) ORV_NOEXCEPT;

/* In-place edits of a configuration file, for administration tools. Only
 * the named entry's lines change: every other byte (comments, blank lines,
 * malformed lines, the order, other entries with their continuation lines,
 * the line ends) is kept, which the cache's write driver, writing entries
 * only, does not do. Names compare as configuration names; values are
 * quoted as the write driver quotes them. The file is replaced through
 * "<file>.tmp.<thread id>" beside it, forced to disk and renamed, so a
 * crash leaves the old or the new file; the replacement keeps the file's
 * permission bits (and its owner and group where the process may set them),
 * and a symbolic link is followed: its target is replaced, the link stays.
 *
 * config_file_set: the last entry called name (the one look-ups see) gets
 * value as its only value: its first line is rewritten with its indentation
 * and the name as spelt there, its continuation lines go. Without such an
 * entry "name = value" is added at the end (with the line end the file's
 * first line uses), the file being created (mode 0666 less the umask) when
 * missing. 0, or -1 with errno set: EINVAL for a NULL argument or a name the
 * syntax cannot give back (empty, starting with '#' or a blank, ending with
 * a blank, or holding '=', CR or LF); otherwise the system's error.
 *
 * config_file_delete: removes every entry called name with its
 * continuation lines. 0; 1 when no entry has that name (the file is left
 * alone); -1 with errno set (EINVAL for a NULL argument). */
ORV_API int config_file_set(const char *path, const char *name, const char *value) ORV_NOEXCEPT;
ORV_API int config_file_delete(const char *path, const char *name) ORV_NOEXCEPT;

/* The first value of the last entry called key, or def when there is none
 * (or cache is NULL). The text belongs to the cache: it stays valid until
 * config_freecache, and for the default cache for the life of the process. */
ORV_API const char *config_get_string(config_cache *cache, const char *key, const char *def) ORV_NOEXCEPT;
/* The same as a malloc copy (free with free()); NULL when both are NULL or
 * memory runs out. */
ORV_API char *config_get_stringcopy(config_cache *cache, const char *key, const char *def) ORV_NOEXCEPT;
/* The value read as a decimal int with an optional sign and surrounding
 * blanks; def when absent, not a number, or beyond the range of int. */
ORV_API int config_get_int(config_cache *cache, const char *key, int def) ORV_NOEXCEPT;
/* The value read as a switch: on/yes/true/1 give 1, off/no/false/0 give 0 (in
 * any case); def when absent or anything else. */
ORV_API int config_get_switch(config_cache *cache, const char *key, int def) ORV_NOEXCEPT;
/* Number of entries; 0 for NULL. */
ORV_API int config_entry_count(config_cache *cache) ORV_NOEXCEPT;

/* The process's default cache: the file "config/orv.conf" under $ORV_HOME,
 * or under the current directory when ORV_HOME is unset. It is read on first
 * use; a missing file gives an empty cache, so every default applies. NULL
 * only when memory runs out at first use (the next call tries again); the
 * get functions accept a NULL cache and answer their defaults. */
ORV_API config_cache *config_getdefaultcache(void) ORV_NOEXCEPT;
/* Names another file for the default cache. Before first use it only sets
 * the path; afterwards it also reloads. 0 or -1 (NULL path). */
ORV_API int config_setdefaultfile(const char *path) ORV_NOEXCEPT;
/* The path of the default cache's file (owned by the library). */
ORV_API const char *config_getdefaultfile(void) ORV_NOEXCEPT;
/* Reads the default cache's file again (for "refresh"). Readers on other
 * threads see either the old or the new entries; texts handed out before
 * stay valid. 0, or -1 when the file exists but cannot be read (the old
 * entries are then kept). */
ORV_API int config_reloaddefault(void) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_CONFIG_H */
