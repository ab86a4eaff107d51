/*
 * The name/value dictionary: query strings, form fields and name=value
 * argument vectors parsed into an ordered map, looked up and written back.
 *
 * Names live in a platform string array (the dictionary owns its copies);
 * values are opaque pointers in a platform pointer array. Who frees a value
 * depends on the call: caldict_delete leaves the values to the caller,
 * caldict_delete_all hands each one to the caller's free function.
 *
 * An unsorted dictionary keeps insertion order and treats names as equal
 * when they match exactly. A sorted one keeps its names in ASCII
 * case-insensitive order, finds them by binary search and treats names that
 * differ only in case as the same name.
 *
 * Every string this module hands over (caldict_get_as_string, the entries of
 * caldict_get_as_argv and the array itself) is allocated with malloc and
 * released with free (caldict_argv_destroy frees the entries only).
 *
 * Decisions of this implementation:
 * - Every call accepts a NULL dictionary: look-ups answer NULL / 0 / -1 and
 *   changes return -1.
 * - The add functions return 0, or -1 for a NULL dictionary or name, or when
 *   memory runs out (the dictionary is then unchanged).
 * - caldict_create_from_string: when a later pair repeats a name, its value
 *   replaces the earlier one and the earlier copy is freed (the copies are
 *   the dictionary's own). When the separator appears inside a name (before
 *   the '='), the text up to that separator is skipped as a pair without a
 *   value and parsing resumes behind it. A NUL separator means "one pair".
 * - Values that are NULL are written as empty text by the output functions.
 * - The case-insensitive comparisons fold ASCII letters only, whatever the
 *   caller's locale.
 *
 * A dictionary is not locked; one thread uses it at a time. The CRC table is
 * built once, safely, on first use.
 */
#ifndef ORVUTIL_CAL_DICT_H
#define ORVUTIL_CAL_DICT_H

#include <stddef.h>
#include <stdint.h>

#include "orv_defs.h"
#include "platform/array.h"

ORV_BEGIN_DECLS

/* Status of the changing calls (look-ups answer NULL, 0 or -1 as said). */
#define CALDICT_OK     0
#define CALDICT_E_FAIL (-1)

typedef struct caldict {
    array_t *names;  /* string array: entry i is the name of pair i */
    array_t *values; /* pointer array: entry i is the value of pair i */
    uint32_t count;  /* number of pairs, the length of both arrays */
    int sorted;      /* 1: names in ascending case-insensitive order */
} caldict;

/* An empty unsorted (caldict_create) or sorted (caldict_create_sort)
 * dictionary; NULL when memory runs out. */
ORV_API caldict *caldict_create(void) ORV_NOEXCEPT;
ORV_API caldict *caldict_create_sort(void) ORV_NOEXCEPT;

/* Parses name=value pairs separated by sep into a new unsorted dictionary
 * whose values are malloc copies. Parsing stops at the first pair with an
 * empty name or at text without '='; nothing is unescaped. NULL for a NULL
 * string or when memory runs out. */
ORV_API caldict *caldict_create_from_string(const char *s, char sep) ORV_NOEXCEPT;

/* Parses what follows the first '?' of url with separator '&'; NULL when
 * there is no '?'. When a '#' follows, the text up to and including the '#'
 * is parsed, so the last value ends with '#'; the fragment is dropped. */
ORV_API caldict *caldict_create_from_url(const char *url) ORV_NOEXCEPT;

/* One pair for every string of the NULL-terminated argv holding '=': the
 * name before the first '=', the value behind it without leading blanks and
 * tabs (a malloc copy). Strings without '=' are skipped. NULL when argv or
 * argv[0] is NULL or memory runs out. */
ORV_API caldict *caldict_create_from_argv(char **argv) ORV_NOEXCEPT;

/* Frees the names, the arrays and the record; the values are left alone. */
ORV_API void caldict_delete(caldict *d) ORV_NOEXCEPT;
/* The same, but first calls freeValue (when not NULL) on every value in
 * index order. */
ORV_API void caldict_delete_all(caldict *d, void (*freeValue)(void *)) ORV_NOEXCEPT;

/* Adds a pair. When the name is present, replace != 0 stores the new value
 * in its place (the stored name is kept) and replace == 0 changes nothing;
 * in that case the new value stays the caller's.
 * caldict_add / caldict_add_sort keep a replaced value (it is the caller's);
 * caldict_add_string / caldict_add_sort_string free it with free().
 * On an unsorted dictionary caldict_add and caldict_add_string append (and
 * the dictionary is marked unsorted); the _sort variants sort it first and
 * answer -1 when it is still unsorted. On a sorted dictionary every variant
 * inserts in order. */
ORV_API int caldict_add(caldict *d, const char *name, void *value, int replace) ORV_NOEXCEPT;
ORV_API int caldict_add_string(caldict *d, const char *name, char *value, int replace) ORV_NOEXCEPT;
ORV_API int caldict_add_sort(caldict *d, const char *name, void *value, int replace) ORV_NOEXCEPT;
ORV_API int caldict_add_sort_string(caldict *d, const char *name, char *value, int replace) ORV_NOEXCEPT;

/* Raw insertion before index (append when index is negative), no search and
 * the sorted flag unchanged; pairs with caldict_get_extended. 0, or -1 when
 * index is past the end, the name is NULL or memory runs out. */
ORV_API int caldict_insert(caldict *d, const char *name, void *value, int index) ORV_NOEXCEPT;

/* The value of name, or NULL. exactCase != 0 or an unsorted dictionary: a
 * linear search (ASCII case ignored when exactCase is 0); otherwise binary
 * search ignoring case. */
ORV_API void *caldict_get(const caldict *d, const char *name, int exactCase) ORV_NOEXCEPT;

/* Sorts the dictionary when unsorted, then finds where name belongs:
 * *index receives the position (-1: after the last pair) and the result is
 * the value when the name is present, else NULL. caldict_insert at *index
 * keeps the order. */
ORV_API void *caldict_get_extended(caldict *d, const char *name, int *index) ORV_NOEXCEPT;

/* Removes the pair found as caldict_get finds it, freeing its name but not
 * its value; 0, or -1 when absent. */
ORV_API int caldict_remove(caldict *d, const char *name, int exactCase) ORV_NOEXCEPT;

/* A new unsorted dictionary of the pairs whose names agree with fragment in
 * their first n bytes (case-sensitive when caseSensitive != 0), sharing the
 * value pointers of d. NULL when nothing matches, d or fragment is NULL,
 * fragment is empty or n is 0. Free it with caldict_delete. */
ORV_API caldict *caldict_match_name_fragment(const caldict *d, const char *fragment, size_t n,
                                             int caseSensitive) ORV_NOEXCEPT;

/* Number of pairs and the sorted flag; 0 for NULL. */
ORV_API uint32_t caldict_length(const caldict *d) ORV_NOEXCEPT;
ORV_API int caldict_isSorted(const caldict *d) ORV_NOEXCEPT;

/* The i-th name (still owned by the dictionary) and/or value; NULL for a
 * NULL dictionary or an index outside 0..length-1. caldict_get_indexed
 * fills both outputs (NULL when out of range; either output may be NULL)
 * and returns 0, or -1 when out of range. */
ORV_API char *caldict_get_indexed_name(const caldict *d, int i) ORV_NOEXCEPT;
ORV_API void *caldict_get_indexed_value(const caldict *d, int i) ORV_NOEXCEPT;
ORV_API int caldict_get_indexed(const caldict *d, int i, char **name, void **value) ORV_NOEXCEPT;

/* "name=value" pairs joined by "&" in index order, without escaping; values
 * are taken as strings. NULL for a NULL or empty dictionary or when memory
 * runs out. */
ORV_API char *caldict_get_as_string(const caldict *d) ORV_NOEXCEPT;

/* A NULL-terminated array of count "name=value" strings; NULL for a NULL or
 * empty dictionary or when memory runs out. Release the strings with
 * caldict_argv_destroy and the array itself with free(). */
ORV_API char **caldict_get_as_argv(const caldict *d) ORV_NOEXCEPT;
ORV_API void caldict_argv_destroy(char **argv) ORV_NOEXCEPT;

/* A copy with the same order and sorted flag; names are copied, values are
 * copyValue(value). NULL when d or copyValue is NULL or memory runs out
 * (values already copied are then released with free(), so copyValue must
 * return malloc memory or NULL). */
ORV_API caldict *caldict_copy(const caldict *d, char *(*copyValue)(const char *)) ORV_NOEXCEPT;
/* A copy whose names and values are malloc copies of d's (values taken as
 * strings); release it with caldict_delete_all(copy, free). */
ORV_API caldict *caldict_copy_str(const caldict *d) ORV_NOEXCEPT;

/* Sorts the pairs by name, ignoring ASCII case (NULL names first). When the
 * working order cannot be allocated the dictionary is marked sorted without
 * being sorted (kept on purpose); when the rearranged arrays cannot be
 * allocated it is left as it was, unsorted. */
ORV_API void caldict_sort(caldict *d) ORV_NOEXCEPT;

/* CRC-32 (reflected, polynomial 0xEDB88320) of name1 value1 name2 value2 ...
 * without separators or terminators, NULL entries skipped; 0 for an empty
 * or NULL dictionary. */
ORV_API uint32_t caldict_get_CRC32(const caldict *d) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_DICT_H */
