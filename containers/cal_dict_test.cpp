#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "orvutil/cal_dict.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs pairs_of(const caldict *d) {
    Pairs out;
    for (int i = 0; i < static_cast<int>(caldict_length(d)); ++i) {
        auto *v = static_cast<const char *>(caldict_get_indexed_value(d, i));
        out.emplace_back(caldict_get_indexed_name(d, i), v == nullptr ? "(null)" : v);
    }
    return out;
}

void free_all(caldict *d) { caldict_delete_all(d, std::free); }

std::string take(char *s) {
    std::string out = s == nullptr ? "(null)" : s;
    std::free(s);
    return out;
}

struct ParseCase {
    const char *text;
    char sep;
    Pairs expected;
};

TEST(Dict, ParsesPairsFromStrings) {
    const ParseCase cases[] = {
        {"a=1&b=2&a=3", '&', {{"a", "3"}, {"b", "2"}}},
        {"=x&a=1", '&', {}},
        {"a=1&=x&b=2", '&', {{"a", "1"}}},
        {"a=1&b", '&', {{"a", "1"}}},
        {"a=1=2;b=%41+", ';', {{"a", "1=2"}, {"b", "%41+"}}},
        // The separator inside a name skips that piece.
        {"a&b=1", '&', {{"b", "1"}}},
        {"a=b=c", '=', {}},
        {"a=1&b=2", '\0', {{"a", "1&b=2"}}},
    };
    for (const auto &c : cases) {
        caldict *d = caldict_create_from_string(c.text, c.sep);
        ASSERT_NE(d, nullptr) << c.text;
        EXPECT_EQ(pairs_of(d), c.expected) << c.text;
        free_all(d);
    }
    EXPECT_EQ(caldict_create_from_string(nullptr, '&'), nullptr);
}

TEST(Dict, UrlQueryKeepsTheHashOnTheLastValue) {
    const std::pair<const char *, Pairs> cases[] = {
        {"/x?a=1&b=2#top", {{"a", "1"}, {"b", "2#"}}},
        {"/x?", {}},
        {"?a=1#", {{"a", "1#"}}},
    };
    for (const auto &[url, expected] : cases) {
        caldict *d = caldict_create_from_url(url);
        ASSERT_NE(d, nullptr) << url;
        EXPECT_EQ(pairs_of(d), expected) << url;
        free_all(d);
    }
    EXPECT_EQ(caldict_create_from_url("/x#a=1"), nullptr);
}

TEST(Dict, ArgvTakesStringsWithEquals) {
    char a1[] = "a=1", skip[] = "noequals", b[] = "b= \t two", a3[] = "a=3", c[] = "c=";
    char *argv[] = {a1, skip, b, a3, c, nullptr};
    caldict *d = caldict_create_from_argv(argv);
    EXPECT_EQ(pairs_of(d), (Pairs{{"a", "3"}, {"b", "two"}, {"c", ""}}));
    free_all(d);
    char *empty[] = {nullptr};
    EXPECT_EQ(caldict_create_from_argv(empty), nullptr);
}

TEST(Dict, PresenceIsExactUnsortedAndCaseBlindSorted) {
    static char v1[] = "1", v2[] = "2";
    const struct {
        bool sorted;
        int replace;
        Pairs expected;
    } cases[] = {{false, 1, {{"beta", "1"}, {"Beta", "2"}}}, {true, 1, {{"beta", "2"}}}, {true, 0, {{"beta", "1"}}}};
    for (const auto &c : cases) {
        caldict *d = c.sorted ? caldict_create_sort() : caldict_create();
        EXPECT_EQ(caldict_add(d, "beta", v1, c.replace), 0);
        EXPECT_EQ(caldict_add(d, "Beta", v2, c.replace), 0);
        EXPECT_EQ(pairs_of(d), c.expected);
        caldict_delete(d);
    }
}

TEST(Dict, StringVariantsFreeTheReplacedValue) {
    // LeakSanitizer fails this test if a replaced value is not freed; a
    // double free would fail it under AddressSanitizer.
    for (auto add : {caldict_add_string, caldict_add_sort_string}) {
        caldict *d = caldict_create();
        add(d, "k", strdup("old"), 1);
        add(d, "k", strdup("new"), 1);
        char *kept = strdup("refused");
        add(d, "k", kept, 0);
        std::free(kept);
        EXPECT_STREQ(static_cast<char *>(caldict_get(d, "k", 1)), "new");
        free_all(d);
    }
}

TEST(Dict, SortedAddSortsFirstAndFoldsCase) {
    caldict *d = caldict_create();
    caldict_add(d, "zeta", nullptr, 1);
    caldict_add(d, "Alpha", nullptr, 1);
    std::string order;
    for (const char *name : {"mid", "ALPHA", "b", "Zz"}) ASSERT_EQ(caldict_add_sort(d, name, nullptr, 1), 0);
    for (int i = 0; i < static_cast<int>(caldict_length(d)); ++i)
        order += caldict_get_indexed_name(d, i) + std::string(",");
    EXPECT_EQ(order, "Alpha,b,mid,zeta,Zz,");
    caldict_delete(d);
}

TEST(Dict, InsertPointAndRawInsert) {
    static char vb[] = "B", vd[] = "D", vf[] = "F";
    caldict *d = caldict_create();
    caldict_add(d, "f", vf, 0);
    caldict_add(d, "b", vb, 0);
    caldict_add(d, "d", vd, 0);
    const struct {
        const char *key;
        int index;
        const char *value;
    } cases[] = {{"a", 0, nullptr}, {"b", 0, "B"}, {"c", 1, nullptr}, {"D", 1, "D"},
                 {"e", 2, nullptr}, {"F", 2, "F"}, {"g", -1, nullptr}};
    for (const auto &c : cases) {
        int index = 99;
        auto *value = static_cast<const char *>(caldict_get_extended(d, c.key, &index));
        EXPECT_TRUE(caldict_isSorted(d));
        EXPECT_EQ(index, c.index) << c.key;
        EXPECT_EQ(value == nullptr ? std::string("-") : value, c.value == nullptr ? "-" : c.value) << c.key;
    }
    int index;
    caldict_get_extended(d, "c", &index);
    EXPECT_EQ(caldict_insert(d, "c", nullptr, index), 0);
    caldict_get_extended(d, "z", &index);
    EXPECT_EQ(caldict_insert(d, "z", nullptr, index), 0);
    EXPECT_EQ(caldict_insert(d, "bad", nullptr, 99), -1);
    std::string order;
    for (int i = 0; i < static_cast<int>(caldict_length(d)); ++i) order += caldict_get_indexed_name(d, i);
    EXPECT_EQ(order, "bcdfz");
    caldict_delete(d);
}

TEST(Dict, LookupRemoveAndIndexedAccess) {
    static char v1[] = "1", v2[] = "2";
    for (bool sorted : {false, true}) {
        caldict *d = sorted ? caldict_create_sort() : caldict_create();
        caldict_add(d, "Name", v1, 1);
        caldict_add(d, "other", v2, 1);
        EXPECT_EQ(caldict_get(d, "name", 0), v1);
        EXPECT_EQ(caldict_get(d, "name", 1), nullptr);
        EXPECT_EQ(caldict_remove(d, "NAME", 1), -1);
        EXPECT_EQ(caldict_remove(d, "NAME", 0), 0);
        EXPECT_EQ(pairs_of(d), (Pairs{{"other", "2"}}));
        char *name = nullptr;
        void *value = nullptr;
        for (int i : {-1, 1, 2}) {
            EXPECT_EQ(caldict_get_indexed_name(d, i), nullptr) << i;
            EXPECT_EQ(caldict_get_indexed(d, i, &name, &value), -1);
            EXPECT_EQ(value, nullptr);
        }
        caldict_delete(d);
    }
}

TEST(Dict, NameFragments) {
    caldict *d = caldict_create_from_string("ab=1&AB2=2&abc=3&x=4", '&');
    caldict *m = caldict_match_name_fragment(d, "abz", 2, 0);
    EXPECT_EQ(pairs_of(m), (Pairs{{"ab", "1"}, {"AB2", "2"}, {"abc", "3"}}));
    EXPECT_EQ(caldict_get(m, "ab", 1), caldict_get(d, "ab", 1));  // shared values
    caldict_delete(m);
    m = caldict_match_name_fragment(d, "AB", 2, 1);
    EXPECT_EQ(pairs_of(m), (Pairs{{"AB2", "2"}}));
    caldict_delete(m);
    EXPECT_EQ(caldict_match_name_fragment(d, "q", 1, 0), nullptr);
    free_all(d);
}

TEST(Dict, OutputForms) {
    caldict *d = caldict_create();
    EXPECT_EQ(caldict_get_as_string(d), nullptr);
    EXPECT_EQ(caldict_get_as_argv(d), nullptr);
    caldict_add(d, "a", const_cast<char *>("1"), 1);
    EXPECT_EQ(take(caldict_get_as_string(d)), "a=1");
    caldict_add(d, "b c", const_cast<char *>("%&"), 1);
    caldict_add(d, "n", nullptr, 1);
    EXPECT_EQ(take(caldict_get_as_string(d)), "a=1&b c=%&&n=");
    char **argv = caldict_get_as_argv(d);
    EXPECT_EQ(std::string(argv[0]) + "," + argv[1] + "," + argv[2] + (argv[3] ? "!" : ""), "a=1,b c=%&,n=");
    caldict_argv_destroy(argv);  // the strings only: the array is still ours
    EXPECT_EQ(argv[0], nullptr);
    std::free(argv);
    caldict_delete(d);
}

TEST(Dict, CopiesKeepOrderAndFlag) {
    caldict *d = caldict_create_from_string("z=a&b=b&M=c", '&');
    caldict_sort(d);
    EXPECT_EQ(pairs_of(d), (Pairs{{"b", "b"}, {"M", "c"}, {"z", "a"}}));
    for (caldict *c : {caldict_copy(d, [](const char *v) { return strdup(v); }), caldict_copy_str(d)}) {
        EXPECT_EQ(pairs_of(c), pairs_of(d));
        EXPECT_TRUE(caldict_isSorted(c));
        EXPECT_NE(caldict_get_indexed_value(c, 0), caldict_get_indexed_value(d, 0));
        free_all(c);
    }
    EXPECT_EQ(caldict_copy(d, nullptr), nullptr);
    free_all(d);
}

uint32_t crc_bitwise(const std::string &s) {
    uint32_t crc = 0xFFFFFFFFu;
    for (unsigned char ch : s) {
        crc ^= ch;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

TEST(Dict, Crc32MatchesTheBitwiseDefinition) {
    EXPECT_EQ(caldict_get_CRC32(nullptr), 0u);
    // Lengths around the 8-byte stride and the 16- and 64-byte blocks, every
    // byte value, NULL values skipped; round 0 is an empty dictionary.
    std::mt19937 rng(3);
    for (int round = 0; round < 200; ++round) {
        caldict *d = caldict_create();
        std::string all;
        for (int i = 0; i < round % 7; ++i) {
            std::string name = "n";  // not "n" + to_string(): GCC 12 -O3 warns falsely
            name += std::to_string(i);
            std::string value(rng() % (round < 100 ? 40 : 300), 'x');
            for (auto &ch : value) ch = static_cast<char>(1 + rng() % 255);
            const bool null_value = rng() % 5 == 0;
            caldict_add(d, name.c_str(), null_value ? nullptr : strdup(value.c_str()), 1);
            all += name + (null_value ? "" : value);
        }
        EXPECT_EQ(caldict_get_CRC32(d), crc_bitwise(all));
        free_all(d);
    }
}

}  // namespace
