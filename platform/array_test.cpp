#include <gtest/gtest.h>

#include "orvutil/platform/array.h"

namespace {

int match_int(const void *key, const void *element) {
    return static_cast<int>(reinterpret_cast<intptr_t>(key) - reinterpret_cast<intptr_t>(element));
}
void *as_ptr(intptr_t v) { return reinterpret_cast<void *>(v); }

TEST(Array, IndexBoundsAnswerNullOrFailure) {
    array_t *a = array_new();
    ASSERT_NE(a, nullptr);
    ASSERT_EQ(array_append(a, as_ptr(1)), 0);
    ASSERT_EQ(array_append(a, as_ptr(3)), 0);
    ASSERT_EQ(array_insert(a, 1, as_ptr(2)), 0);
    ASSERT_EQ(array_insert(a, 3, as_ptr(4)), 0);  // index == count appends
    EXPECT_EQ(array_count(a), 4);
    for (intptr_t i = 0; i < 4; ++i) EXPECT_EQ(array_elementat(a, static_cast<int>(i)), as_ptr(i + 1));
    // Out of range, including index == count.
    EXPECT_EQ(array_elementat(a, 4), nullptr);
    EXPECT_EQ(array_elementat(a, -1), nullptr);
    EXPECT_EQ(array_insert(a, 6, as_ptr(9)), -1);
    EXPECT_EQ(array_insert(a, -1, as_ptr(9)), -1);
    EXPECT_EQ(array_modifyat(a, 4, as_ptr(9)), -1);
    EXPECT_EQ(array_removeat(a, 4), nullptr);
    EXPECT_EQ(array_locate(a, as_ptr(3), match_int), 2);
    EXPECT_EQ(array_locate(a, as_ptr(7), match_int), -1);
    EXPECT_EQ(array_removeat(a, 0), as_ptr(1));
    EXPECT_EQ(array_modifyat(a, 0, as_ptr(20)), 0);
    EXPECT_EQ(array_elementat(a, 0), as_ptr(20));
    EXPECT_EQ(array_count(a), 3);
    array_delete(a);
}

TEST(Array, NullArrayIsHarmless) {
    EXPECT_EQ(array_count(nullptr), 0);
    EXPECT_EQ(array_append(nullptr, nullptr), -1);
    EXPECT_EQ(strarray_indexof(nullptr, "x", 0), -1);
    EXPECT_EQ(strarray_dup(nullptr), nullptr);
    array_delete(nullptr);
    strarray_free_and_destroy(nullptr);
}

TEST(StringArray, OwnsCopiesAndSearchesBothWays) {
    array_t *a = array_new();
    char name[] = "Alpha";
    ASSERT_EQ(strarray_append(a, name), 0);
    name[0] = 'X';  // the array kept its own copy
    strarray_append(a, "beta");
    strarray_append(a, "ALPHA");
    strarray_append(a, nullptr);
    EXPECT_STREQ(strarray_elementat(a, 0), "Alpha");

    struct Case {
        const char *s;
        int flag, first, last;
    };
    const Case cases[] = {
        {"alpha", 1, 0, 2}, {"alpha", 0, -1, -1}, {"ALPHA", 0, 2, 2},
        {"Beta", 1, 1, 1},  {"gamma", 1, -1, -1}, {nullptr, 0, 3, 3},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(strarray_indexof(a, c.s, c.flag), c.first) << (c.s ? c.s : "null");
        EXPECT_EQ(strarray_lastof(a, c.s, c.flag), c.last) << (c.s ? c.s : "null");
    }

    ASSERT_EQ(strarray_modifyat(a, 1, "gamma"), 0);
    array_t *copy = strarray_dup(a);
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(array_count(copy), 4);
    EXPECT_NE(strarray_elementat(copy, 0), strarray_elementat(a, 0));
    EXPECT_STREQ(strarray_elementat(copy, 1), "gamma");
    strarray_free_and_destroy(copy);
    strarray_free_and_destroy(a);
}

}  // namespace
