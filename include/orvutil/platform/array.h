/*
 * Growable arrays of pointers and of owned strings.
 *
 * One array type serves both uses. The array_* calls store and return the
 * caller's pointers and never free them (except array_free_and_destroy).
 * The strarray_* calls treat the elements as strings the array owns: every
 * string handed in is copied with malloc, and the copies are freed by
 * strarray_modifyat and strarray_free_and_destroy. Strings removed with
 * array_removeat are handed back to the caller, who frees them with free().
 *
 * Indexes are int, counted from 0. Every call accepts a NULL array: queries
 * answer 0 / NULL / -1 and changes fail with -1.
 * An array is not locked; one thread changes it at a time.
 */
#ifndef ORVUTIL_PLATFORM_ARRAY_H
#define ORVUTIL_PLATFORM_ARRAY_H

#include "../orv_defs.h"

ORV_BEGIN_DECLS

typedef struct array_t array_t;

/* Comparison for array_qsort: receives pointers to two elements, as qsort(3)
 * does (so for a string array each argument is a `char **`). */
typedef int (*array_sortcmp)(const void *a, const void *b);
/* Comparison for array_locate: receives the key and an element themselves;
 * 0 means they match. */
typedef int (*array_findcmp)(const void *key, const void *element);

/* A new empty array, or NULL when memory runs out. */
ORV_API array_t *array_new(void) ORV_NOEXCEPT;
/* Number of elements; 0 for NULL. */
ORV_API int array_count(const array_t *a) ORV_NOEXCEPT;
/* Appends; 0, or -1 for a NULL array or no memory. */
ORV_API int array_append(array_t *a, void *element) ORV_NOEXCEPT;
/* Inserts before index (0..count; count appends); 0, or -1 when the index is
 * out of range or memory runs out. */
ORV_API int array_insert(array_t *a, int index, void *element) ORV_NOEXCEPT;
/* Replaces the element at index (the old one is not freed); 0 or -1. */
ORV_API int array_modifyat(array_t *a, int index, void *element) ORV_NOEXCEPT;
/* Removes the element at index and returns it (the caller owns it now);
 * NULL when the index is out of range. */
ORV_API void *array_removeat(array_t *a, int index) ORV_NOEXCEPT;
/* Element at index, or NULL when index < 0 or index >= count. */
ORV_API void *array_elementat(const array_t *a, int index) ORV_NOEXCEPT;
/* Sorts in place with qsort(3) semantics. */
ORV_API void array_qsort(array_t *a, array_sortcmp cmp) ORV_NOEXCEPT;
/* Index of the first element for which cmp(key, element) == 0, or -1. */
ORV_API int array_locate(const array_t *a, const void *key, array_findcmp cmp) ORV_NOEXCEPT;
/* Frees the array only; the elements are left to the caller. */
ORV_API void array_delete(array_t *a) ORV_NOEXCEPT;
/* Frees every non-NULL element with free(), then the array. */
ORV_API void array_free_and_destroy(array_t *a) ORV_NOEXCEPT;

/* Appends a malloc copy of s (NULL is stored as NULL); 0 or -1. */
ORV_API int strarray_append(array_t *a, const char *s) ORV_NOEXCEPT;
/* Inserts a copy of s before index (0..count); 0 or -1. */
ORV_API int strarray_insert(array_t *a, int index, const char *s) ORV_NOEXCEPT;
/* Replaces the string at index with a copy of s and frees the old one; 0 or -1. */
ORV_API int strarray_modifyat(array_t *a, int index, const char *s) ORV_NOEXCEPT;
/* The string at index (still owned by the array), or NULL out of range. */
ORV_API char *strarray_elementat(const array_t *a, int index) ORV_NOEXCEPT;
/* Index of the first / last string equal to s, or -1. With flag 1 names are
 * compared as configuration names (ASCII case ignored); with 0 exactly.
 * NULL elements match only a NULL s. */
ORV_API int strarray_indexof(const array_t *a, const char *s, int flag) ORV_NOEXCEPT;
ORV_API int strarray_lastof(const array_t *a, const char *s, int flag) ORV_NOEXCEPT;
/* A new string array holding copies of a's strings, or NULL. */
ORV_API array_t *strarray_dup(const array_t *a) ORV_NOEXCEPT;
/* Frees every string, then the array. */
ORV_API void strarray_free_and_destroy(array_t *a) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_PLATFORM_ARRAY_H */
