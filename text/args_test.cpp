#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include "orvutil/cal_errorHandler.h"
#include "orvutil/cal_exactstr.h"
#include "orvutil/cal_parseutil.h"

namespace {

using Strings = std::vector<std::string>;

// Modifiable copies of the strings behind a NULL-terminated vector.
struct Vec {
    explicit Vec(Strings items) : store(std::move(items)) {
        for (auto &s : store) ptrs.push_back(s.data());
        ptrs.push_back(nullptr);
    }
    char **get() { return ptrs.data(); }
    Strings store;
    std::vector<char *> ptrs;
};

Strings strings_of(array_t *a) {
    Strings out;
    for (int i = 0; i < array_count(a); ++i) out.emplace_back(strarray_elementat(a, i));
    strarray_free_and_destroy(a);
    return out;
}

std::string shown(const char *s) { return s ? s : "<NULL>"; }

TEST(Args, Lookups) {
    // vector, name, is_an_arg, arg_value (also from a string array), arg_value_or_empty
    const std::tuple<Strings, const char *, int, const char *, const char *> cases[] = {
        {{"Name= x"}, "name", 1, "x", "x"},
        {{"name=\t "}, "name", 1, "<NULL>", ""},
        {{"names=x", "na"}, "name", 0, "<NULL>", "<NULL>"},
        {{"name"}, "NAME", 1, "<NULL>", "<NULL>"},  // no '=': no value
        {{"other=1", "name=2", "name=3"}, "name", 1, "2", "2"},
        {{"name=", "name=3"}, "name", 1, "<NULL>", ""},  // the first match decides
    };
    for (const auto &[entries, name, is_arg, value, or_empty] : cases) {
        Vec v(entries);
        array_t *a = array_new();
        for (const auto &e : entries) strarray_append(a, e.c_str());
        EXPECT_EQ(cal_parseutil_is_an_arg(v.get(), name), is_arg) << entries[0];
        EXPECT_EQ(shown(cal_parseutil_arg_value(v.get(), name)), value) << entries[0];
        EXPECT_EQ(shown(cal_parseutil_arg_value_or_empty(v.get(), name)), or_empty) << entries[0];
        EXPECT_EQ(shown(cal_parseutil_arg_value_from_strarray(a, name)), value) << entries[0];
        strarray_free_and_destroy(a);
    }
    Vec v({"a=1"});
    EXPECT_EQ(cal_parseutil_arg_value(v.get(), "a"), v.store[0].data() + 2);  // into the caller's entry
}

TEST(Args, Trim) {
    for (const auto &[in, out] : {std::pair{"ab \t ", "ab"}, {"  ", ""}, {"", ""}, {" a b", " a b"}, {"a\n", "a\n"}}) {
        std::string s = in;
        EXPECT_EQ(cal_parseutil_trim(s.data()), s.data());
        EXPECT_STREQ(s.c_str(), out);
    }
    EXPECT_EQ(cal_parseutil_trim(nullptr), nullptr);
}

TEST(Lists, SplitIntoListsAndArrays) {
    const std::tuple<const char *, char, Strings> cases[] = {
        {"a,\"b,c\",d", ',', {"a", "b,c", "d"}},
        {"a,,b,", ',', {"a", "", "b", ""}},
        {"\"x\"", ',', {"\"x\""}},            // no delimiter behind: quotes kept
        {"\"x\"junk,y", ',', {"x", "y"}},     // text behind the closing quote dropped
        {"\"open,rest", ',', {"open,rest"}},  // an unclosed quote takes the rest
        {"a;b,c", ';', {"a", "b,c"}},
        {"", ',', {""}},
        {"abc", '\0', {"abc"}},
    };
    for (const auto &[text, delimiter, elements] : cases) {
        char **list = nullptr;
        int count = -1;
        ASSERT_EQ(cal_parseutil_get_char_list(text, &list, &count, delimiter), 0);
        EXPECT_EQ(Strings(list, list + count), elements) << text;
        EXPECT_EQ(cal_parseutil_free_char_list(&list, count), 0);
        EXPECT_EQ(list, nullptr);
        array_t *a = nullptr;
        ASSERT_EQ(cal_parseutil_get_char_array(text, delimiter, &a), 0);
        EXPECT_EQ(strings_of(a), elements) << text;
    }
    char **list = nullptr;
    int count = 5;
    EXPECT_EQ(cal_parseutil_get_char_list(nullptr, &list, &count, ','), 0);
    EXPECT_EQ(count, 0);
}

TEST(Lists, LongListsGrowPastTheFirstSlots) {
    // A mebibyte with a delimiter every 16 bytes and a quote at the very end.
    std::string big;
    while (big.size() < (1 << 20)) big += "0123456789abcde;";
    char **list = nullptr;
    int count = 0;
    ASSERT_EQ(cal_parseutil_get_semicolon_list((big + "\"q\"").c_str(), &list, &count), 0);
    EXPECT_EQ(count, (1 << 16) + 1);
    EXPECT_STREQ(list[12345], "0123456789abcde");
    EXPECT_STREQ(list[count - 1], "\"q\"");
    cal_parseutil_free_char_list(&list, count);
}

TEST(Lists, StringArrays) {
    Vec v({"one", "two"});
    array_t *a = nullptr;
    EXPECT_EQ(cal_parseutil_to_calstrarray(&a, 2, v.get()), 2);
    EXPECT_EQ(strings_of(a), (Strings{"one", "two"}));
    EXPECT_EQ(cal_parseutil_to_calstrarray(nullptr, 2, v.get()), 0);
    array_t *empty = nullptr;
    EXPECT_EQ(cal_parseutil_to_calstrarray(&empty, 0, nullptr), 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(strings_of(empty), Strings{});
    for (const auto &[in, out] :
         {std::pair<const char *, Strings>{"a  b ", {"a", "", "b"}}, {"", {}}, {" a\tb", {"", "a", "b"}}}) {
        std::string text = in;
        array_t *arr = array_new();
        EXPECT_EQ(cal_parseutil_delimit_by_space_or_tab(text.data(), arr), 0);
        EXPECT_EQ(strings_of(arr), out) << in;
    }
}

TEST(Args, IntegersBooleansAndCase) {
    const std::pair<const char *, long> ints[] = {
        {"12x", 7},
        {"-5", -5},
        {"", 0},
        {"-", 0},
        {"+12", 12},
        {"007", 7},
        {" 1", 7},
        {"--1", 7},
        {nullptr, 7},
        {"99999999999999999999", LONG_MAX},
        {"-99999999999999999999", LONG_MIN},
    };
    for (const auto &[in, out] : ints) EXPECT_EQ(cal_parseutil_getInteger(in, 7), out) << shown(in);
    for (const auto &[in, out] : {std::pair{"1", 1}, {"+1", 1}, {"001", 1}, {"true", 0}, {"2", 0}, {"", 0}})
        EXPECT_EQ(cal_parseutil_getBool(in), out) << in;
    std::string s = "MiXeD 1\xC9";
    EXPECT_STREQ(cal_parseutil_str_tolower(s.data()), "mixed 1\xC9");  // C locale: high bytes kept
    EXPECT_STREQ(cal_parseutil_str_toupper(s.data()), "MIXED 1\xC9");
}

TEST(Search, OnlyThePrefixModeCollects) {
    Vec v({"calid=a", "cal=b", "name", "xcal=d", "Cal=e"});
    for (int mode : {1, 2, 3, 0, 42}) {
        array_t *a = nullptr;
        ASSERT_EQ(cal_parseutil_searchForString(v.get(), "cal", mode, &a), 0);
        EXPECT_EQ(strings_of(a), (mode == 1 ? Strings{"calid=a", "cal=b"} : Strings{})) << mode;
    }
    // Matchers: 0 match, 1 pattern longer than the name (Exact: lengths
    // differ), -1 otherwise.
    // entry, name length, prefix, suffix and contains, exact
    const std::tuple<const char *, int, int, int, int> cases[] = {
        {"calid=x", 5, 0, -1, 1}, {"cal=x", 3, 0, -1, -1}, {"ca=x", 2, 1, 1, 1}, {"dal=x", 3, -1, -1, -1}};
    for (const auto &[entry, namelen, prefix, other, exact] : cases) {
        EXPECT_EQ(cal_parseutil_PrefixSearch(entry, "cal", namelen), prefix) << entry;
        EXPECT_EQ(cal_parseutil_SuffixSearch(entry, "cal", namelen), other) << entry;
        EXPECT_EQ(cal_parseutil_ContainsSearch(entry, "cal", namelen), other) << entry;
        EXPECT_EQ(cal_parseutil_ExactSearch(entry, "cal", namelen), exact) << entry;
    }
}

TEST(ExactStr, FirstOccurrenceAsAWholeWord) {
    // haystack, needle, delimiters, offset found by each (-1: NULL)
    const std::tuple<const char *, const char *, const char *, int, int> cases[] = {
        {"cal1,cal10", "cal1", nullptr, 0, 0},   {"xcal1 cal1", "cal1", nullptr, -1, -1},  // first occurrence only
        {"cal10,cal1", "cal1", nullptr, -1, -1}, {"a|cal1|b", "cal1", "|", 2, 2},
        {"a|cal1|b", "cal1", "", -1, -1},        {"a,CAL1", "cal1", nullptr, -1, 2},
        {"cal", "cal1", nullptr, -1, -1},        {"abc", "", nullptr, -1, -1},
    };
    for (const auto &[hay, needle, delims, at, at_case] : cases) {
        EXPECT_EQ(cal_strexactstr(hay, needle, delims), at < 0 ? nullptr : hay + at) << hay;
        EXPECT_EQ(cal_strexactcasestr(hay, needle, delims), at_case < 0 ? nullptr : hay + at_case) << hay;
    }
    EXPECT_EQ(cal_strexactstr(nullptr, "a", nullptr), nullptr);
}

TEST(ErrorRange, Kinds) {
    const int cases[][3] = {{1, 10999, 0}, {1, 11000, 1}, {1, 11999, 1}, {1, 12000, 0}, {2, 9999, 0},
                            {2, 10000, 1}, {2, 10999, 1}, {4, 4999, 0},  {4, 5000, 1},  {4, 5999, 1},
                            {4, 6000, 0},  {3, 5500, 3},  {-9, 1, -9}};
    for (const auto &c : cases) EXPECT_EQ(cal_checkErrorRange(c[0], c[1]), c[2]) << c[0] << " " << c[1];
}

}  // namespace
