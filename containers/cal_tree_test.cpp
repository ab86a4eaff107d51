#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>

#include "orvutil/cal_tree.h"

namespace {

// a { b { d, e { g } }, c { f } }, built through every insertion call.
std::array<CT_Node *, 7> sample_tree() {
    std::array<CT_Node *, 7> n;
    for (int i = 0; i < 7; ++i) n[i] = CT_Create(const_cast<char *>(&"abcdefg"[i]));
    CT_AddLastChild(n[0], n[2]);
    CT_AddFirstChild(n[0], n[1]);
    CT_AddLastChild(n[1], n[3]);
    CT_AddSibling(n[3], n[4]);
    CT_AddLastChild(n[4], n[6]);
    CT_AddFirstChild(n[2], n[5]);
    return n;
}

std::string seen;  // "name depth " per node visited by record
char stop;         // record ends the walk at the node of this name

int record(CT_Node *n, size_t depth, void *) {
    const char name = *static_cast<char *>(n->data);
    seen += name + std::to_string(depth) + " ";
    return name == stop;
}

std::string dump(const CT_Node *root) {
    struct protstream *s = prot_new_memory(0);
    auto print = [](struct protstream *out, void *data, void *) { prot_putc(*static_cast<char *>(data), out); };
    std::string text = CT_Dump(root, s, print, nullptr) == CT_OK ? prot_memory_data(s, nullptr) : "failed";
    prot_free(s);
    return text;
}

int copies, fail_at, live;  // copy fails on call number fail_at; live counts copies not yet released
void *copy(void *data) {
    if (++copies == fail_at) return nullptr;
    ++live;
    return strdup(static_cast<char *>(data));
}
void release(void *data) {
    --live;
    std::free(data);
}

}  // namespace

TEST(Trees, WalksPlacementCopyAndDump) {
    auto n = sample_tree();
    CT_Node *a = n[0], *b = n[1];
    const struct {
        CT_Node *root;
        CT_Order order;
        char stop;
        int status;
        const char *seen;
    } walks[] = {{a, CT_PRE_ORDER, 0, CT_OK, "a0 b1 d2 e2 g3 c1 f2 "},
                 {a, CT_POST_ORDER, 0, CT_OK, "d2 g3 e2 b1 f2 c1 a0 "},
                 {a, CT_BREADTH_FIRST, 'd', CT_STOPPED, "a0 b1 c1 d2 "},
                 {a, CT_BREADTH_FIRST, 0, CT_OK, "a0 b1 c1 d2 e2 f2 g3 "},
                 {b, CT_PRE_ORDER, 'e', CT_STOPPED, "b0 d1 e1 "},
                 {b, CT_POST_ORDER, 0, CT_OK, "d1 g2 e1 b0 "}};  // a subtree's walk never strays to its siblings
    for (const auto &w : walks) {
        seen.clear();
        stop = w.stop;
        EXPECT_EQ(CT_Walk(w.root, w.order, record, nullptr), w.status) << w.seen;
        EXPECT_EQ(seen, w.seen);
    }

    CT_Node *loose = CT_Create(nullptr);
    const struct {
        const char *what;
        int status, want;
    } refusals[] = {{"a graft under its own descendant", CT_AddFirstChild(n[6], a), CT_E_PLACE},
                    {"a node under itself", CT_AddLastChild(loose, loose), CT_E_PLACE},
                    {"a node that still has a parent", CT_AddLastChild(loose, n[5]), CT_E_PLACE},
                    {"a sibling for a root", CT_AddSibling(a, loose), CT_E_PLACE},
                    {"a NULL node", CT_AddFirstChild(a, nullptr), CT_E_ARG},
                    {"an unknown order", CT_Walk(a, static_cast<CT_Order>(9), record, nullptr), CT_E_ARG}};
    for (const auto &r : refusals) EXPECT_EQ(r.status, r.want) << r.what;
    CT_Free(&loose, nullptr);

    // Fails on the root, half-way (just after climbing two levels), on the
    // last node, or never.
    for (int at : {1, 6, 7, 0}) {
        copies = 0, fail_at = at;
        CT_Node *c = a;
        EXPECT_EQ(CT_Copy(a, copy, release, &c), at == 0 ? CT_OK : CT_E_COPY);
        EXPECT_EQ(live, at == 0 ? 7 : 0) << at;
        EXPECT_EQ(c == nullptr, at != 0) << at;
        if (c == nullptr) continue;
        EXPECT_EQ(dump(c), dump(a));
        CT_Free(&c, release);
    }

    // Freeing a node inside the tree unlinks it first.
    CT_Free(&n[4], nullptr);
    EXPECT_EQ(n[4], nullptr);
    EXPECT_EQ(dump(a), "a\n  b\n    d\n  c\n    f\n");
    CT_Free(&a, nullptr);
}

TEST(Trees, MillionDeepChainNeedsNoStack) {
    constexpr size_t kDepth = 1000000;
    static size_t freed = 0;
    CT_Node *root = CT_Create(&freed), *last = root;
    for (size_t i = 1; i < kDepth; ++i, last = last->firstChild)
        ASSERT_EQ(CT_AddLastChild(last, CT_Create(&freed)), CT_OK);
    size_t deepest = 0;
    auto deeper = [](CT_Node *, size_t depth, void *arg) {
        auto *d = static_cast<size_t *>(arg);
        *d = std::max(*d, depth);
        return 0;
    };
    EXPECT_EQ(CT_Walk(root, CT_POST_ORDER, deeper, &deepest), CT_OK);
    EXPECT_EQ(deepest, kDepth - 1);
    CT_Node *c = nullptr;
    ASSERT_EQ(CT_Copy(root, nullptr, nullptr, &c), CT_OK);
    EXPECT_EQ(CT_Count(c), kDepth);
    CT_Free(&c, [](void *) { ++freed; });
    CT_Free(&root, [](void *) { ++freed; });
    EXPECT_EQ(freed, 2 * kDepth);
}
