// Tree of objects with parent, first-child and next-sibling links. Every
// walk steps from node to node through the links, so none recurses and none
// but the breadth-first one allocates.
#include "orvutil/cal_tree.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <vector>

namespace {

// The node after n in pre-order within the subtree of root, or nullptr;
// depth follows the step.
template <class Node>
Node *preorder_next(Node *n, const CT_Node *root, size_t &depth) {
    if (n->firstChild != nullptr) {
        ++depth;
        return n->firstChild;
    }
    while (n != root && n->nextSibling == nullptr) {
        n = n->parent;
        --depth;
    }
    return n == root ? nullptr : n->nextSibling;
}

template <class Node>
Node *leftmost_leaf(Node *n, size_t &depth) {
    for (; n->firstChild != nullptr; n = n->firstChild) ++depth;
    return n;
}

// The node after n in post-order within the subtree of root, or nullptr.
// It reads only n's sibling and parent links, so n may be freed once the
// step is taken.
template <class Node>
Node *postorder_next(Node *n, const CT_Node *root, size_t &depth) {
    if (n == root) return nullptr;
    if (n->nextSibling != nullptr) return leftmost_leaf(n->nextSibling, depth);
    --depth;
    return n->parent;
}

bool inside(const CT_Node *place, const CT_Node *node) {
    // A leaf can only contain itself; the walk up is for grafted subtrees.
    if (node->firstChild == nullptr) return place == node;
    for (; place != nullptr; place = place->parent)
        if (place == node) return true;
    return false;
}

int check_insert(const CT_Node *place, const CT_Node *node) {
    if (place == nullptr || node == nullptr) return CT_E_ARG;
    if (node->parent != nullptr || inside(place, node)) return CT_E_PLACE;
    return CT_OK;
}

int walk_breadth_first(CT_Node *root, CT_VisitProc visit, void *arg) {
    try {
        std::vector<CT_Node *> level{root}, next;
        for (size_t depth = 0; !level.empty(); ++depth) {
            next.clear();
            for (CT_Node *n : level) {
                if (visit(n, depth, arg) != 0) return CT_STOPPED;
                for (CT_Node *c = n->firstChild; c != nullptr; c = c->nextSibling) next.push_back(c);
            }
            level.swap(next);
        }
    } catch (const std::bad_alloc &) {
        return CT_E_NOMEM;
    }
    return CT_OK;
}

// A new node holding a copy of data. The copy is released again when the
// node cannot be allocated.
int copy_node(void *data, CT_CopyProc copyData, CT_FreeProc freeData, CT_Node *&out) {
    void *copy = data;
    if (data != nullptr && copyData != nullptr) {
        copy = copyData(data);
        if (copy == nullptr) return CT_E_COPY;
    }
    out = CT_Create(copy);
    if (out != nullptr) return CT_OK;
    if (copy != data && freeData != nullptr) freeData(copy);
    return CT_E_NOMEM;
}

}  // namespace

extern "C" {

CT_Node *CT_Create(void *data) noexcept {
    auto *node = static_cast<CT_Node *>(std::calloc(1, sizeof(CT_Node)));
    if (node != nullptr) node->data = data;
    return node;
}

int CT_AddFirstChild(CT_Node *parent, CT_Node *node) noexcept {
    if (const int status = check_insert(parent, node); status != CT_OK) return status;
    node->parent = parent;
    node->nextSibling = parent->firstChild;
    parent->firstChild = node;
    return CT_OK;
}

int CT_AddLastChild(CT_Node *parent, CT_Node *node) noexcept {
    if (parent == nullptr || parent->firstChild == nullptr) return CT_AddFirstChild(parent, node);
    CT_Node *last = parent->firstChild;
    while (last->nextSibling != nullptr) last = last->nextSibling;
    return CT_AddSibling(last, node);
}

int CT_AddSibling(CT_Node *anchor, CT_Node *node) noexcept {
    if (const int status = check_insert(anchor, node); status != CT_OK) return status;
    if (anchor->parent == nullptr) return CT_E_PLACE;
    node->parent = anchor->parent;
    node->nextSibling = anchor->nextSibling;
    anchor->nextSibling = node;
    return CT_OK;
}

int CT_Detach(CT_Node *node) noexcept {
    if (node == nullptr) return CT_E_ARG;
    CT_Node *parent = node->parent;
    if (parent == nullptr) return CT_OK;
    CT_Node **link = &parent->firstChild;
    while (*link != node) link = &(*link)->nextSibling;
    *link = node->nextSibling;
    node->parent = nullptr;
    node->nextSibling = nullptr;
    return CT_OK;
}

void CT_Free(CT_Node **node, CT_FreeProc freeData) noexcept {
    if (node == nullptr || *node == nullptr) return;
    CT_Node *root = *node;
    *node = nullptr;
    CT_Detach(root);
    size_t depth = 0;
    for (CT_Node *n = leftmost_leaf(root, depth); n != nullptr;) {
        CT_Node *next = postorder_next(n, root, depth);
        if (n->data != nullptr && freeData != nullptr) freeData(n->data);
        std::free(n);
        n = next;
    }
}

int CT_Walk(CT_Node *root, CT_Order order, CT_VisitProc visit, void *arg) noexcept {
    if (root == nullptr || visit == nullptr) return CT_E_ARG;
    size_t depth = 0;
    // A C caller may pass any int: read it as one, not as the enum.
    std::underlying_type_t<CT_Order> how;
    std::memcpy(&how, &order, sizeof how);
    switch (how) {
        case CT_PRE_ORDER:
            for (CT_Node *n = root; n != nullptr; n = preorder_next(n, root, depth))
                if (visit(n, depth, arg) != 0) return CT_STOPPED;
            return CT_OK;
        case CT_POST_ORDER:
            for (CT_Node *n = leftmost_leaf(root, depth); n != nullptr; n = postorder_next(n, root, depth))
                if (visit(n, depth, arg) != 0) return CT_STOPPED;
            return CT_OK;
        case CT_BREADTH_FIRST: return walk_breadth_first(root, visit, arg);
    }
    return CT_E_ARG;
}

int CT_Copy(const CT_Node *root, CT_CopyProc copyData, CT_FreeProc freeData, CT_Node **out) noexcept {
    if (out == nullptr) return CT_E_ARG;
    *out = nullptr;
    if (root == nullptr) return CT_E_ARG;
    CT_Node *copy = nullptr;
    int status = copy_node(root->data, copyData, freeData, copy);
    if (status != CT_OK) return status;
    // The copy follows the source's pre-order: a step one level down adds
    // a first child to the node just copied, any other step climbs as far
    // as the source did and adds a sibling.
    CT_Node *last = copy;
    size_t depth = 0, last_depth = 0;
    for (const CT_Node *n = preorder_next(root, root, depth); n != nullptr; n = preorder_next(n, root, depth)) {
        CT_Node *node = nullptr;
        status = copy_node(n->data, copyData, freeData, node);
        if (status != CT_OK) break;
        if (depth > last_depth) {
            last->firstChild = node;
            node->parent = last;
        } else {
            for (size_t up = last_depth - depth; up > 0; --up) last = last->parent;
            last->nextSibling = node;
            node->parent = last->parent;
        }
        last = node;
        last_depth = depth;
    }
    if (status != CT_OK) {
        CT_Free(&copy, freeData);
        return status;
    }
    *out = copy;
    return CT_OK;
}

size_t CT_Count(const CT_Node *root) noexcept {
    size_t count = 0, depth = 0;
    for (const CT_Node *n = root; n != nullptr; n = preorder_next(n, root, depth)) ++count;
    return count;
}

int CT_Dump(const CT_Node *root, struct protstream *out, CT_PrintProc print, void *arg) noexcept {
    if (root == nullptr || out == nullptr) return CT_E_ARG;
    size_t depth = 0;
    for (const CT_Node *n = root; n != nullptr; n = preorder_next(n, root, depth)) {
        for (size_t i = 0; i < depth; ++i) prot_write(out, "  ", 2);
        if (print != nullptr)
            print(out, n->data, arg);
        else
            prot_printf(out, "%p", n->data);
        prot_putc('\n', out);
    }
    return out->error != 0 ? CT_E_IO : CT_OK;
}

}  // extern "C"
