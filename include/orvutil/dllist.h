/*
 * A doubly linked list of untyped object pointers with one built-in cursor.
 *
 * The cursor stands on a link (position 0..count-1), before the first
 * element (position -1, cursor NULL) or past the last (position == count,
 * cursor NULL). Objects belong to the caller unless a free procedure is
 * handed to the clearing and deleting calls or set as the list's standard
 * free procedure. List records and links are allocated with malloc and
 * released by the DLL_ calls only.
 *
 * Result codes: DLL_OK (0) success; DLL_E_FAIL (1) failure (NULL or empty list, cursor out of
 * range, bad cursor state, no memory); DLL_SLOWLY_FREED (999) from
 * DLL_SlowlyFreeAll once it has freed the record; DLL_ALREADY_PRESENT (1012)
 * from DLL_InsertSortUnique when an equal object is present.
 *
 * Decisions of this implementation:
 * - Every call accepts a NULL list: status calls answer 1, object calls
 *   NULL with *err = 1, predicates 0 (DLL_BeginningOfList/DLL_EndOfList
 *   answer 1 as for an empty list).
 * - DLL_ClearNumEntries clears the new head's back link.
 * - DLL_Insert returns 1 when the new link cannot be allocated.
 * - DLL_SlowlyFreeAll takes a step n below 1 as 1, so repeating it always
 *   ends with DLL_SLOWLY_FREED.
 * - The live-list counter is atomic, so it stays exact across threads;
 *   a list itself is not locked.
 */
#ifndef ORVUTIL_DLLIST_H
#define ORVUTIL_DLLIST_H

#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Result codes. */
#define DLL_OK     0
#define DLL_E_FAIL 1

#define DLL_SLOWLY_FREED    999
#define DLL_ALREADY_PRESENT 1012

typedef void (*DLL_FreeProc)(void *object);
/* Called by DLL_Apply with each object and the caller's argument; a
 * non-NULL result ends the walk and is returned. */
typedef void *(*DLL_ApplyProc)(void *object, void *arg);
/* Compares an object of the list with the given one: <0, 0, >0. */
typedef int (*DLL_CompareProc)(void *listObject, void *object);
typedef void *(*DLL_CopyProc)(void *object);

typedef struct DLLink {
    struct DLLink *next;
    struct DLLink *prev;
    void *object;
} DLLink;

typedef struct DLList {
    DLLink *head;
    DLLink *tail;
    DLLink *cursor;
    int count;
    int position;
    DLL_FreeProc stdFreeProc; /* used by DLL_Delete and DLL_Replace */
} DLList;

/* One link holding object; NULL (after perror "DLLink constructor: malloc")
 * when memory runs out. */
ORV_API DLLink *DLL_CreateLink(void *object) ORV_NOEXCEPT;
/* An empty list, counted in DLL_GetTotalCount; NULL (after perror
 * "DLList constructor: malloc") when memory runs out. */
ORV_API DLList *DLL_Create(void) ORV_NOEXCEPT;
ORV_API void DLL_SetStdFreeProc(DLList *list, DLL_FreeProc proc) ORV_NOEXCEPT;

/* Frees every link (calling freeProc, when set, on each non-NULL object);
 * the list is then empty with position -1. */
ORV_API int DLL_ClearAll(DLList *list, DLL_FreeProc freeProc) ORV_NOEXCEPT;
ORV_API int DLL_Clear(DLList *list) ORV_NOEXCEPT;
/* Frees up to n links from the head; head and cursor become the first link
 * left (or NULL) and the position -1. */
ORV_API int DLL_ClearNumEntries(DLList *list, DLL_FreeProc freeProc, int n) ORV_NOEXCEPT;
/* Clear, then free the record; the clearing call's result. */
ORV_API int DLL_Free(DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_FreeAll(DLList *list, DLL_FreeProc freeProc) ORV_NOEXCEPT;
/* Frees n elements per call: 0 while elements remain, DLL_SLOWLY_FREED once
 * the record itself is freed (the list must not be used after that). */
ORV_API int DLL_SlowlyFreeAll(DLList *list, DLL_FreeProc freeProc, int n) ORV_NOEXCEPT;

/* Cursor placement. */
ORV_API int DLL_SetToBeginningOfList(DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_SetToEndOfList(DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_SetToFirstOfList(DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_SetToLastOfList(DLList *list) ORV_NOEXCEPT;
/* Below 0: before the first; count or more: past the end; otherwise walks
 * from the cursor, the head or the tail, whichever is nearest. */
ORV_API int DLL_SetToPosition(DLList *list, int pos) ORV_NOEXCEPT;

/* Predicates: 1 true, 0 false. */
ORV_API int DLL_BeginningOfList(const DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_FirstOfList(const DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_EmptyOrFirstOfList(const DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_EndOfList(const DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_LastOfList(const DLList *list) ORV_NOEXCEPT;
ORV_API int DLL_EmptyOrLastOfList(const DLList *list) ORV_NOEXCEPT;
/* Number of live list records in the process. */
ORV_API int DLL_GetTotalCount(void) ORV_NOEXCEPT;

/* Reading: the object, *err 0; or NULL with *err 1 (err may be NULL). */
ORV_API void *DLL_Get(DLList *list, int *err) ORV_NOEXCEPT;
ORV_API void *DLL_GetPos(DLList *list, int pos, int *err) ORV_NOEXCEPT;
/* Move the cursor one step and return the object there; at the last (first)
 * element they fail and leave the cursor where it is. */
ORV_API void *DLL_GetNext(DLList *list, int *err) ORV_NOEXCEPT;
ORV_API void *DLL_GetPrev(DLList *list, int *err) ORV_NOEXCEPT;

/* Inserts before the cursor link (or after the tail when past the end) and
 * leaves the cursor on the new link. Refused (1) when the cursor stands
 * before the first element of a non-empty list. */
ORV_API int DLL_Insert(DLList *list, void *object) ORV_NOEXCEPT;
ORV_API int DLL_InsertPos(DLList *list, int pos, void *object) ORV_NOEXCEPT;
ORV_API int DLL_Prepend(DLList *list, void *object) ORV_NOEXCEPT;
ORV_API int DLL_Append(DLList *list, void *object) ORV_NOEXCEPT;
/* Deletes the link at the cursor (calling freeProc on a non-NULL object);
 * the cursor moves to the next link, or to the new last one. */
ORV_API int DLL_DeleteAndFree(DLList *list, DLL_FreeProc freeProc) ORV_NOEXCEPT;
ORV_API int DLL_Delete(DLList *list) ORV_NOEXCEPT;
/* Replaces the object at the cursor, handing the old one to the standard
 * free procedure when set. */
ORV_API int DLL_Replace(DLList *list, void *object) ORV_NOEXCEPT;

/* Calls fn(object, arg) on each object from the first; a non-NULL result
 * stops the walk and is returned. With keepCursor 0 the cursor goes back to
 * where it stood; otherwise it stays where the walk ended. */
ORV_API void *DLL_Apply(DLList *list, DLL_ApplyProc fn, void *arg, int keepCursor, int *err) ORV_NOEXCEPT;
/* a when a == b, else NULL. */
ORV_API void *DLL_PointerSearchApply(void *a, void *b) ORV_NOEXCEPT;
/* a when the strings are equal (strcmp), else NULL. */
ORV_API void *DLL_StringSearchApply(void *a, void *b) ORV_NOEXCEPT;
/* strcmp(a, b). */
ORV_API int DLL_AlphaSort(void *a, void *b) ORV_NOEXCEPT;

/* Binary search of a list sorted by cmp: *found 1 and *pos the equal
 * object's position, or *found 0 and *pos where object belongs. Each probe
 * walks the list, so it costs linear time. Moves the cursor. */
ORV_API int DLL_GetSortPosition(DLList *list, void *object, DLL_CompareProc cmp, int *pos, int *found) ORV_NOEXCEPT;
/* Inserts object at its sorted position, before an equal one; with unique
 * set and an equal object present, DLL_ALREADY_PRESENT and no insertion. */
ORV_API int DLL_InsertSortUnique(DLList *list, void *object, DLL_CompareProc cmp, int unique) ORV_NOEXCEPT;

/* A new list with the same standard free procedure holding copyProc(object)
 * of each element in order (NULL objects copied as NULL); the source cursor
 * does not move; a NULL copyProc shares the objects. NULL when memory runs
 * out (copies made so far are handed to the standard free procedure when
 * set). */
ORV_API DLList *DLL_Copy(DLList *list, DLL_CopyProc copyProc) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_DLLIST_H */
