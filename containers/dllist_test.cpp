#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "orvutil/dllist.h"

namespace {

void *obj(intptr_t n) { return reinterpret_cast<void *>(n); }
intptr_t num(void *p) { return reinterpret_cast<intptr_t>(p); }

DLList *list_of(int n) {
    DLList *list = DLL_Create();
    for (int i = 1; i <= n; ++i) EXPECT_EQ(DLL_Append(list, obj(i)), 0);
    return list;
}

// The objects head to tail, after checking that the back links mirror the
// forward ones and that count matches.
std::vector<intptr_t> contents(const DLList *list) {
    std::vector<intptr_t> out;
    const DLLink *prev = nullptr;
    for (const DLLink *l = list->head; l != nullptr; l = l->next) {
        EXPECT_EQ(l->prev, prev);
        out.push_back(num(l->object));
        prev = l;
    }
    EXPECT_EQ(list->tail, prev);
    EXPECT_EQ(static_cast<int>(out.size()), list->count);
    return out;
}

int freed = 0;
void count_free(void *) { ++freed; }

TEST(DLList, InsertAtTheCursor) {
    DLList *list = list_of(3);
    EXPECT_EQ(list->position, 2);
    DLL_SetToBeginningOfList(list);
    EXPECT_EQ(DLL_Insert(list, obj(9)), 1);  // refused before the first element
    EXPECT_EQ(contents(list), (std::vector<intptr_t>{1, 2, 3}));

    EXPECT_EQ(DLL_Append(list, obj(4)), 0);
    EXPECT_EQ(list->position, 3);
    EXPECT_EQ(num(DLL_Get(list, nullptr)), 4);
    EXPECT_EQ(DLL_Prepend(list, obj(0)), 0);
    EXPECT_EQ(DLL_InsertPos(list, 2, obj(7)), 0);
    EXPECT_EQ(num(DLL_Get(list, nullptr)), 7);
    EXPECT_EQ(DLL_InsertPos(list, 99, obj(8)), 0);
    EXPECT_EQ(DLL_InsertPos(list, -1, obj(5)), 1);
    EXPECT_EQ(contents(list), (std::vector<intptr_t>{0, 1, 7, 2, 3, 4, 8}));
    DLL_Free(list);
}

TEST(DLList, DeleteMovesTheCursor) {
    // cursor 0: no cursor.
    const struct {
        int size, at;
        std::vector<intptr_t> left;
        int position;
        intptr_t cursor;
    } cases[] = {
        {3, 0, {2, 3}, 0, 2},
        {3, 1, {1, 3}, 1, 3},
        {3, 2, {1, 2}, 1, 2},
        {1, 0, {}, -1, 0},
    };
    for (const auto &c : cases) {
        DLList *list = list_of(c.size);
        DLL_SetStdFreeProc(list, count_free);
        freed = 0;
        DLL_SetToPosition(list, c.at);
        EXPECT_EQ(DLL_Delete(list), 0);
        EXPECT_EQ(freed, 1);
        EXPECT_EQ(contents(list), c.left);
        EXPECT_EQ(list->position, c.position);
        EXPECT_EQ(list->cursor == nullptr ? 0 : num(list->cursor->object), c.cursor);
        DLL_Free(list);
    }
    DLList *list = list_of(2);
    for (int pos : {-1, 2}) {
        DLL_SetToPosition(list, pos);
        EXPECT_EQ(DLL_Delete(list), 1);
        EXPECT_EQ(DLL_Replace(list, obj(5)), 1);
    }
    DLL_Free(list);
}

TEST(DLList, EveryWalkReachesItsTarget) {
    // From each start (before, on each element, past the end) to each target,
    // covering the walks from the cursor, the head and the tail.
    const int n = 9;
    DLList *list = list_of(n);
    for (int from = -1; from <= n; ++from) {
        for (int to = -1; to <= n + 1; ++to) {
            DLL_SetToPosition(list, from);
            EXPECT_EQ(DLL_SetToPosition(list, to), 0);
            int err = 0;
            void *o = DLL_Get(list, &err);
            if (to >= 0 && to < n) {
                EXPECT_EQ(err, 0);
                EXPECT_EQ(num(o), to + 1) << from << "->" << to;
            } else {
                EXPECT_EQ(err, 1);
                EXPECT_EQ(list->position, to < 0 ? -1 : n);
            }
        }
    }
    DLL_Free(list);
}

TEST(DLList, StepsStopAtBothEnds) {
    DLList *list = list_of(3);
    int err = 0;
    std::vector<intptr_t> seen;
    DLL_SetToBeginningOfList(list);
    for (void *o; (o = DLL_GetNext(list, &err)) != nullptr;) seen.push_back(num(o));
    EXPECT_EQ(list->position, 2);  // the failed step left the cursor on the last
    DLL_SetToEndOfList(list);
    for (void *o; (o = DLL_GetPrev(list, &err)) != nullptr;) seen.push_back(num(o));
    EXPECT_EQ(err, 1);
    EXPECT_EQ(list->position, 0);
    EXPECT_EQ(seen, (std::vector<intptr_t>{1, 2, 3, 3, 2, 1}));
    // The predicates before, on the first, on the last and past the end,
    // then on the emptied list.
    const struct {
        std::function<void()> move;
        int beginning, first, empty_or_first, end;
    } places[] = {{[&] { DLL_SetToBeginningOfList(list); }, 1, 0, 0, 0},
                  {[&] { DLL_SetToFirstOfList(list); }, 0, 1, 1, 0},
                  {[&] { DLL_SetToLastOfList(list); }, 0, 0, 0, 0},
                  {[&] { DLL_SetToEndOfList(list); }, 0, 0, 0, 1},
                  {[&] { DLL_Clear(list); }, 1, 0, 1, 1}};
    for (const auto &p : places) {
        p.move();
        EXPECT_EQ(std::vector<int>({DLL_BeginningOfList(list), DLL_FirstOfList(list), DLL_EmptyOrFirstOfList(list),
                                    DLL_EndOfList(list)}),
                  std::vector<int>({p.beginning, p.first, p.empty_or_first, p.end}))
            << list->position;
    }
    EXPECT_EQ(DLL_SetToLastOfList(list), DLL_E_FAIL);
    DLL_Free(list);
}

int cmp_num(void *a, void *b) { return static_cast<int>(num(a) - num(b)); }

TEST(DLList, SortedInsertion) {
    DLList *list = DLL_Create();
    for (intptr_t v : {50, 10, 30, 70, 20, 60, 40}) EXPECT_EQ(DLL_InsertSortUnique(list, obj(v), cmp_num, 1), 0);
    EXPECT_EQ(contents(list), (std::vector<intptr_t>{10, 20, 30, 40, 50, 60, 70}));
    EXPECT_EQ(DLL_InsertSortUnique(list, obj(30), cmp_num, 1), DLL_ALREADY_PRESENT);
    EXPECT_EQ(list->count, 7);
    DLL_Free(list);

    // Without unique an equal object goes before the existing one.
    static char first[] = "b", second[] = "b";
    list = DLL_Create();
    for (char *s : {const_cast<char *>("c"), first, const_cast<char *>("a"), second})
        DLL_InsertSortUnique(list, s, DLL_AlphaSort, 0);
    EXPECT_EQ(list->head->next->object, second);
    EXPECT_EQ(list->tail->prev->object, first);
    DLL_Free(list);
}

TEST(DLList, StagedAndPartialFreeing) {
    const int before = DLL_GetTotalCount();
    DLList *list = list_of(5);
    EXPECT_EQ(DLL_GetTotalCount(), before + 1);
    freed = 0;
    EXPECT_EQ(DLL_SlowlyFreeAll(list, count_free, 2), 0);
    EXPECT_EQ(list->head->prev, nullptr);
    EXPECT_EQ(list->position, -1);
    EXPECT_EQ(DLL_SlowlyFreeAll(list, count_free, 2), 0);
    EXPECT_EQ(DLL_SlowlyFreeAll(list, count_free, 2), DLL_SLOWLY_FREED);
    EXPECT_EQ(freed, 5);
    EXPECT_EQ(DLL_GetTotalCount(), before);

    list = list_of(4);
    EXPECT_EQ(DLL_ClearNumEntries(list, nullptr, 3), 0);
    int err;
    EXPECT_EQ(num(DLL_GetNext(list, &err)), 4);
    EXPECT_EQ(DLL_SlowlyFreeAll(list, nullptr, 0), DLL_SLOWLY_FREED);  // a step of 0 still ends
    EXPECT_EQ(DLL_GetTotalCount(), before);
    EXPECT_EQ(DLL_SlowlyFreeAll(nullptr, nullptr, 1), 1);
}

void *find_even_above(void *o, void *arg) { return num(o) % 2 == 0 && num(o) > num(arg) ? o : nullptr; }

TEST(DLList, ApplyRestoresOrKeepsTheCursor) {
    DLList *list = list_of(6);
    DLL_SetToPosition(list, 4);
    int err = 1;
    EXPECT_EQ(num(DLL_Apply(list, find_even_above, obj(2), 0, &err)), 4);
    EXPECT_EQ(err, 0);
    EXPECT_EQ(num(DLL_Get(list, &err)), 5);
    EXPECT_EQ(DLL_Apply(list, DLL_PointerSearchApply, obj(9), 0, &err), nullptr);
    EXPECT_EQ(list->position, 4);
    EXPECT_EQ(DLL_Apply(list, DLL_PointerSearchApply, obj(4), 1, &err), obj(4));
    EXPECT_EQ(list->position, 3);
    DLL_Free(list);
}

void *copy_string(void *o) { return strdup(static_cast<const char *>(o)); }

TEST(DLList, CopyLeavesTheSourceCursor) {
    DLList *list = DLL_Create();
    char a[] = "a", c[] = "c";
    DLL_Append(list, a);
    DLL_Append(list, nullptr);
    DLL_Append(list, c);
    DLL_SetStdFreeProc(list, std::free);
    DLL_SetToPosition(list, 1);
    DLList *copy = DLL_Copy(list, copy_string);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(list->position, 1);
    EXPECT_EQ(copy->stdFreeProc, std::free);
    EXPECT_EQ(std::string(static_cast<char *>(copy->head->object)) + static_cast<char *>(copy->tail->object), "ac");
    EXPECT_EQ(copy->head->next->object, nullptr);
    DLL_SetToFirstOfList(copy);
    EXPECT_EQ(DLL_Replace(copy, strdup("z")), 0);  // the standard proc frees "a"
    DLL_FreeAll(copy, std::free);
    DLL_Free(list);
}

}  // namespace
