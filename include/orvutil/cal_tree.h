/*
 * A tree of objects: each node holds one caller's data pointer and links to
 * its parent, its first child and its next sibling.
 *
 * A node without a parent is a root; a root never has siblings, so every
 * tree has exactly one top node. Every call works on the subtree of the node
 * it is given (the node and its descendants), never on that node's siblings.
 *
 * The parent link is what lets every walk, the copy, the count and the free
 * run in constant extra memory without recursion: a chain of a million
 * nodes costs no stack. Only the breadth-first walk keeps a list, of the
 * nodes of two levels at a time.
 *
 * Nodes are allocated with malloc and released by CT_Free only. The data
 * belongs to the caller: the tree calls the caller's free and copy functions
 * on it only where a call says so, and never on a NULL data pointer.
 *
 * The visitor of a walk and the print function of a dump must not change
 * the links of the tree being walked. No call locks: one thread changes a
 * tree at a time.
 */
#ifndef ORVUTIL_CAL_TREE_H
#define ORVUTIL_CAL_TREE_H

#include <stddef.h>

#include "orv_defs.h"
#include "platform/prot.h"

ORV_BEGIN_DECLS

/* Status codes. */
#define CT_OK      0
#define CT_E_ARG   1 /* a NULL node or function where one is needed, or an unknown order */
#define CT_E_PLACE 2 /* the node cannot go there: see the insertion calls */
#define CT_E_NOMEM 3 /* out of memory */
#define CT_E_COPY  4 /* the caller's copy function failed */
#define CT_E_IO    5 /* the output stream's error flag is set */
#define CT_STOPPED 6 /* the visitor ended the walk early (not a failure) */

typedef struct CT_Node {
    void *data;
    struct CT_Node *parent;      /* NULL for a root */
    struct CT_Node *firstChild;  /* NULL for a leaf */
    struct CT_Node *nextSibling; /* NULL for the last child and for a root */
} CT_Node;

/* Releases one node's data. */
typedef void (*CT_FreeProc)(void *data);
/* A copy of one node's data, or NULL when it cannot be made. */
typedef void *(*CT_CopyProc)(void *data);
/* Called once per node with its depth below the walk's root (0 for the
 * root); a non-zero result ends the walk. */
typedef int (*CT_VisitProc)(CT_Node *node, size_t depth, void *arg);
/* Writes one node's text to out (no line end: the dump adds it). */
typedef void (*CT_PrintProc)(struct protstream *out, void *data, void *arg);

/* Walk orders. */
typedef enum CT_Order {
    CT_PRE_ORDER,    /* a node, then its children's subtrees, depth first */
    CT_POST_ORDER,   /* the children's subtrees, then the node */
    CT_BREADTH_FIRST /* level by level, each level left to right */
} CT_Order;

/* A new root holding data; NULL when memory runs out. */
ORV_API CT_Node *CT_Create(void *data) ORV_NOEXCEPT;

/*
 * Insertion. The node inserted must be a root (no parent), and it may carry
 * a subtree of its own. CT_E_ARG for a NULL argument; CT_E_PLACE when the
 * node still has a parent, when the place lies inside the node's own subtree
 * (the tree would contain itself), or, for CT_AddSibling, when the anchor is
 * a root. CT_AddLastChild walks the parent's children; inserting a node that
 * has children walks up from the place to its root to rule out a cycle.
 */
ORV_API int CT_AddFirstChild(CT_Node *parent, CT_Node *node) ORV_NOEXCEPT;
ORV_API int CT_AddLastChild(CT_Node *parent, CT_Node *node) ORV_NOEXCEPT;
/* Inserts node just after anchor, under anchor's parent. */
ORV_API int CT_AddSibling(CT_Node *anchor, CT_Node *node) ORV_NOEXCEPT;

/* Unlinks node, with its subtree, from its parent and siblings; it becomes
 * a root. A root is left as it is. CT_E_ARG for NULL. */
ORV_API int CT_Detach(CT_Node *node) ORV_NOEXCEPT;

/* Detaches *node, frees its subtree (calling freeData, when not NULL, on
 * each node's data, children before their parent) and sets *node to NULL.
 * Nothing for NULL or *node NULL. */
ORV_API void CT_Free(CT_Node **node, CT_FreeProc freeData) ORV_NOEXCEPT;

/* Visits the subtree of root in the given order. CT_OK when every node was
 * visited, CT_STOPPED when the visitor ended the walk, CT_E_ARG, or
 * CT_E_NOMEM when the breadth-first walk runs out of memory (the nodes of
 * the levels before were visited). */
ORV_API int CT_Walk(CT_Node *root, CT_Order order, CT_VisitProc visit, void *arg) ORV_NOEXCEPT;

/*
 * Copies the subtree of root into a new tree (a root) with the same shape,
 * stored in *out. Each non-NULL data pointer is copied with copyData, or
 * shared when copyData is NULL. All or nothing: when a copy or a node
 * cannot be made, the copies made so far are released with freeData (when
 * not NULL) and their nodes freed, *out is set to NULL and the result is
 * CT_E_COPY or CT_E_NOMEM. CT_E_ARG when root or out is NULL.
 */
ORV_API int CT_Copy(const CT_Node *root, CT_CopyProc copyData, CT_FreeProc freeData, CT_Node **out) ORV_NOEXCEPT;

/* The number of nodes in the subtree of root (0 for NULL). */
ORV_API size_t CT_Count(const CT_Node *root) ORV_NOEXCEPT;

/*
 * Writes the subtree of root to out in pre-order, one line per node: two
 * spaces per level below root, the node's text, '\n'. The text comes from
 * print, or is the data pointer ("%p") when print is NULL. Nothing is
 * flushed. CT_OK, CT_E_ARG (root or out NULL), or CT_E_IO when the
 * stream's error flag is set afterwards.
 */
ORV_API int CT_Dump(const CT_Node *root, struct protstream *out, CT_PrintProc print, void *arg) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_TREE_H */
