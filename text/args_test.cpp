#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <vector>

#include "orvutil/cal_errorHandler.h"
#include "orvutil/cal_exactstr.h"
#include "orvutil/cal_parseutil.h"

namespace {

// Owns modifiable copies of the strings and a NULL-terminated vector.
struct Vec {
    explicit Vec(std::vector<std::string> items) : store(std::move(items)) {
        for (auto &s : store) ptrs.push_back(s.data());
        ptrs.push_back(nullptr);
    }
    char **get() { return ptrs.data(); }
    std::vector<std::string> store;
    std::vector<char *> ptrs;
};

std::vector<std::string> strings_of(array_t *a) {
    std::vector<std::string> out;
    for (int i = 0; i < array_count(a); ++i) out.emplace_back(strarray_elementat(a, i));
    return out;
}

using Strings = std::vector<std::string>;

TEST(Args, Lookups) {
    struct Case {
        Strings entries;
        const char *name;
        int is_arg;
        const char *value;     // nullptr: NULL
        const char *or_empty;  // nullptr: NULL
    };
    const Case cases[] = {
        {{"Name= x"}, "name", 1, "x", "x"},
        {{"name="}, "name", 1, nullptr, ""},
        {{"name=\t "}, "name", 1, nullptr, ""},
        {{"names=x"}, "name", 0, nullptr, nullptr},
        {{"name"}, "NAME", 1, nullptr, nullptr},  // no '=': no value
        {{"other=1", "name=2", "name=3"}, "name", 1, "2", "2"},
        {{"name=", "name=3"}, "name", 1, nullptr, ""},  // the first match decides
        {{"na"}, "name", 0, nullptr, nullptr},
        {{}, "name", 0, nullptr, nullptr},
    };
    for (const auto &c : cases) {
        Vec v(c.entries);
        EXPECT_EQ(cal_parseutil_is_an_arg(v.get(), c.name), c.is_arg) << c.name;
        const char *got = cal_parseutil_arg_value(v.get(), c.name);
        const char *got_empty = cal_parseutil_arg_value_or_empty(v.get(), c.name);
        if (c.value) EXPECT_STREQ(got, c.value); else EXPECT_EQ(got, nullptr);
        if (c.or_empty) EXPECT_STREQ(got_empty, c.or_empty); else EXPECT_EQ(got_empty, nullptr);
        array_t *a = array_new();
        for (const auto &e : c.entries) strarray_append(a, e.c_str());
        const char *from_array = cal_parseutil_arg_value_from_strarray(a, c.name);
        if (c.value) EXPECT_STREQ(from_array, c.value); else EXPECT_EQ(from_array, nullptr);
        strarray_free_and_destroy(a);
    }
    Vec v({"a=1"});
    EXPECT_EQ(cal_parseutil_is_an_arg(nullptr, "a"), 0);
    EXPECT_EQ(cal_parseutil_arg_value(nullptr, "a"), nullptr);
    EXPECT_EQ(cal_parseutil_arg_value(v.get(), nullptr), nullptr);
    EXPECT_EQ(cal_parseutil_arg_value_from_strarray(nullptr, "a"), nullptr);
    // The pointer is into the caller's entry.
    EXPECT_EQ(cal_parseutil_arg_value(v.get(), "a"), v.store[0].data() + 2);
}

TEST(Args, Trim) {
    const std::pair<const char *, const char *> cases[] = {
        {"ab \t ", "ab"}, {"  ", ""}, {"", ""}, {" a b", " a b"}, {"a\n", "a\n"},
    };
    for (const auto &[in, out] : cases) {
        std::string s = in;
        EXPECT_EQ(cal_parseutil_trim(s.data()), s.data());
        EXPECT_STREQ(s.c_str(), out);
    }
    EXPECT_EQ(cal_parseutil_trim(nullptr), nullptr);
}

struct SplitCase {
    const char *text;
    char delimiter;
    Strings elements;
};

const SplitCase kSplits[] = {
    {"a,\"b,c\",d", ',', {"a", "b,c", "d"}},
    {"a,,b,", ',', {"a", "", "b", ""}},
    {"\"x\"", ',', {"\"x\""}},            // no delimiter behind: quotes kept
    {"\"x\"junk,y", ',', {"x", "y"}},     // text behind the closing quote dropped
    {"\"open,rest", ',', {"open,rest"}},  // unclosed quote takes the rest
    {"a,\"b\",\"c\"", ',', {"a", "b", "\"c\""}},
    {"a;b,c", ';', {"a", "b,c"}},
    {"", ',', {""}},
    {",", ',', {"", ""}},
    {"abc", '\0', {"abc"}},
};

TEST(Lists, SplitIntoListsAndArrays) {
    for (const auto &c : kSplits) {
        char **list = nullptr;
        int count = -1;
        ASSERT_EQ(cal_parseutil_get_char_list(c.text, &list, &count, c.delimiter), 0) << c.text;
        Strings got(list, list + count);
        EXPECT_EQ(got, c.elements) << c.text;
        EXPECT_EQ(cal_parseutil_free_char_list(&list, count), 0);
        EXPECT_EQ(list, nullptr);

        array_t *a = nullptr;
        ASSERT_EQ(cal_parseutil_get_char_array(c.text, c.delimiter, &a), 0);
        EXPECT_EQ(strings_of(a), c.elements) << c.text;
        strarray_free_and_destroy(a);
    }
}

TEST(Lists, FixedDelimiterVariantsAndGrowth) {
    // 25 elements: the list grows twice past its first 10 slots.
    std::string text;
    Strings expect;
    for (int i = 0; i < 25; ++i) {
        text += (i ? ";" : "") + std::to_string(i);
        expect.push_back(std::to_string(i));
    }
    char **list = nullptr;
    int count = 0;
    ASSERT_EQ(cal_parseutil_get_semicolon_list(text.c_str(), &list, &count), 0);
    EXPECT_EQ(Strings(list, list + count), expect);
    cal_parseutil_free_char_list(&list, count);
    ASSERT_EQ(cal_parseutil_get_comma_list("p,q", &list, &count), 0);
    EXPECT_EQ(Strings(list, list + count), (Strings{"p", "q"}));
    cal_parseutil_free_char_list(&list, count);
    array_t *a = nullptr;
    cal_parseutil_get_semicolon_array(text.c_str(), &a);
    EXPECT_EQ(strings_of(a), expect);
    strarray_free_and_destroy(a);
    a = nullptr;
    cal_parseutil_get_comma_array("p,q", &a);
    EXPECT_EQ(strings_of(a), (Strings{"p", "q"}));
    strarray_free_and_destroy(a);
}

TEST(Lists, BadArguments) {
    char **list = nullptr;
    int count = 5;
    EXPECT_EQ(cal_parseutil_get_char_list(nullptr, &list, &count, ','), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(cal_parseutil_get_char_list("a", nullptr, &count, ','), 1);
    EXPECT_EQ(cal_parseutil_get_char_list("a", &list, nullptr, ','), 1);
    EXPECT_EQ(cal_parseutil_free_char_list(nullptr, 0), 1);
    EXPECT_EQ(cal_parseutil_free_char_list(&list, 0), 2);
    array_t *untouched = reinterpret_cast<array_t *>(&count);
    EXPECT_EQ(cal_parseutil_get_char_array(nullptr, ',', &untouched), 0);
    EXPECT_EQ(untouched, reinterpret_cast<array_t *>(&count));
    EXPECT_EQ(cal_parseutil_get_char_array("a", ',', nullptr), 0);
}

TEST(Lists, MebibyteOfDelimitersIsLinear) {
    // A quote far at the end must not make every element rescan the text.
    std::string text(1 << 20, ',');
    text += "\"q\"";
    char **list = nullptr;
    int count = 0;
    ASSERT_EQ(cal_parseutil_get_comma_list(text.c_str(), &list, &count), 0);
    EXPECT_EQ(count, (1 << 20) + 1);
    EXPECT_STREQ(list[count - 1], "\"q\"");
    cal_parseutil_free_char_list(&list, count);
}

TEST(Lists, StringArrays) {
    char s1[] = "one", s2[] = "two";
    char *strings[] = {s1, s2};
    array_t *a = nullptr;
    EXPECT_EQ(cal_parseutil_to_calstrarray(&a, 2, strings), 2);
    EXPECT_EQ(strings_of(a), (Strings{"one", "two"}));
    EXPECT_NE(strarray_elementat(a, 0), s1);  // copies
    strarray_free_and_destroy(a);
    EXPECT_EQ(cal_parseutil_to_calstrarray(nullptr, 2, strings), 0);
    EXPECT_EQ(cal_parseutil_to_calstrarray(&a, 0, strings), 0);

    const std::pair<const char *, Strings> blanks[] = {
        {"a  b ", {"a", "", "b"}}, {"", {}}, {" a", {"", "a"}}, {"a\tb", {"a", "b"}}, {"x", {"x"}},
    };
    for (const auto &[in, out] : blanks) {
        std::string text = in;
        array_t *arr = array_new();
        EXPECT_EQ(cal_parseutil_delimit_by_space_or_tab(text.data(), arr), 0);
        EXPECT_EQ(strings_of(arr), out) << in;
        strarray_free_and_destroy(arr);
    }
    char text[] = "a b";
    EXPECT_EQ(cal_parseutil_delimit_by_space_or_tab(text, nullptr), 0);
    EXPECT_STREQ(text, "a b");
}

TEST(Args, IntegersAndBooleans) {
    const std::pair<const char *, long> ints[] = {
        {"12x", 7}, {"-5", -5}, {"", 0}, {"-", 0}, {"+", 0}, {"+12", 12}, {"007", 7},
        {" 1", 7},  {"1 ", 7},  {"--1", 7}, {"99999999999999999999", LONG_MAX}, {"-99999999999999999999", LONG_MIN},
    };
    for (const auto &[in, out] : ints) EXPECT_EQ(cal_parseutil_getInteger(in, 7), out) << in;
    EXPECT_EQ(cal_parseutil_getInteger(nullptr, 7), 7);
    const std::pair<const char *, int> bools[] = {
        {"1", 1}, {"+1", 1}, {"001", 1}, {"true", 0}, {"yes", 0}, {"2", 0}, {"", 0}, {nullptr, 0},
    };
    for (const auto &[in, out] : bools) EXPECT_EQ(cal_parseutil_getBool(in), out) << (in ? in : "NULL");
}

TEST(Args, CaseConversionUsesTheCLibrary) {
    std::string s = "MiXeD 1\xC9";
    EXPECT_EQ(cal_parseutil_str_tolower(s.data()), s.data());
    EXPECT_EQ(s, "mixed 1\xC9");  // C locale: high bytes unchanged
    EXPECT_STREQ(cal_parseutil_str_toupper(s.data()), "MIXED 1\xC9");
    EXPECT_EQ(cal_parseutil_str_tolower(nullptr), nullptr);
    EXPECT_EQ(cal_parseutil_str_toupper(nullptr), nullptr);
}

TEST(Search, OnlyThePrefixModeCollects) {
    Vec v({"calid=a", "cal=b", "calendar=c", "name", "xcal=d", "Cal=e"});
    struct Case {
        int mode;
        Strings found;
    };
    const Case cases[] = {
        {1, {"calid=a", "cal=b", "calendar=c"}},
        {2, {}}, {3, {}}, {0, {}}, {42, {}},
    };
    for (const auto &c : cases) {
        array_t *a = nullptr;
        ASSERT_EQ(cal_parseutil_searchForString(v.get(), "cal", c.mode, &a), 0);
        EXPECT_EQ(strings_of(a), c.found) << c.mode;
        strarray_free_and_destroy(a);
    }
    array_t *a = nullptr;
    Vec empty({});
    EXPECT_EQ(cal_parseutil_searchForString(nullptr, "x", 1, &a), 1);
    EXPECT_EQ(cal_parseutil_searchForString(empty.get(), "x", 1, &a), 1);
    EXPECT_EQ(cal_parseutil_searchForString(v.get(), nullptr, 1, &a), 1);
    EXPECT_EQ(cal_parseutil_searchForString(v.get(), "x", 1, nullptr), 1);
    EXPECT_EQ(a, nullptr);
}

TEST(Search, MatcherResults) {
    struct Case {
        const char *entry, *pattern;
        int prefix, suffix, contains, exact;
    };
    const Case cases[] = {
        {"calid=x", "cal", 0, -1, -1, 1},
        {"cal=x", "cal", 0, -1, -1, -1},   // equal lengths: exact still never matches
        {"ca=x", "cal", 1, 1, 1, 1},       // pattern longer than the name
        {"dal=x", "cal", -1, -1, -1, -1},
        {"calid=x", "lid", -1, -1, -1, 1},
    };
    for (const auto &c : cases) {
        const int namelen = static_cast<int>(std::string(c.entry).find('='));
        EXPECT_EQ(cal_parseutil_PrefixSearch(c.entry, c.pattern, namelen), c.prefix) << c.entry;
        EXPECT_EQ(cal_parseutil_SuffixSearch(c.entry, c.pattern, namelen), c.suffix) << c.entry;
        EXPECT_EQ(cal_parseutil_ContainsSearch(c.entry, c.pattern, namelen), c.contains) << c.entry;
        EXPECT_EQ(cal_parseutil_ExactSearch(c.entry, c.pattern, namelen), c.exact) << c.entry;
    }
}

TEST(ExactStr, FirstOccurrenceAsAWholeWord) {
    struct Case {
        const char *hay, *needle, *delims;
        int at;  // -1: NULL
        int at_case;
    };
    const Case cases[] = {
        {"cal1,cal10", "cal1", nullptr, 0, 0},
        {"xcal1 cal1", "cal1", nullptr, -1, -1},  // first occurrence only
        {"cal10,cal1", "cal1", nullptr, -1, -1},
        {"a;cal1", "cal1", nullptr, 2, 2},
        {"a|cal1|b", "cal1", "|", 2, 2},
        {"a|cal1|b", "cal1", "", -1, -1},  // "" means the default set
        {"a,CAL1", "cal1", nullptr, -1, 2},
        {"cal", "cal1", nullptr, -1, -1},
        {"", "cal1", nullptr, -1, -1},
        {"abc", "", nullptr, -1, -1},
    };
    for (const auto &c : cases) {
        const char *got = cal_strexactstr(c.hay, c.needle, c.delims);
        const char *got_case = cal_strexactcasestr(c.hay, c.needle, c.delims);
        EXPECT_EQ(got, c.at < 0 ? nullptr : c.hay + c.at) << c.hay;
        EXPECT_EQ(got_case, c.at_case < 0 ? nullptr : c.hay + c.at_case) << c.hay;
    }
    EXPECT_EQ(cal_strexactstr(nullptr, "a", nullptr), nullptr);
    EXPECT_EQ(cal_strexactcasestr("a", nullptr, nullptr), nullptr);
}

TEST(ErrorRange, Kinds) {
    struct Case {
        int kind, code, result;
    };
    const Case cases[] = {
        {1, 10999, 0}, {1, 11000, 1}, {1, 11999, 1}, {1, 12000, 0},
        {2, 9999, 0},  {2, 10000, 1}, {2, 10999, 1}, {2, 11000, 0},
        {4, 4999, 0},  {4, 5000, 1},  {4, 5999, 1},  {4, 6000, 0},
        {3, 5500, 3},  {0, 11000, 0}, {-9, 1, -9},
    };
    for (const auto &c : cases) EXPECT_EQ(cal_checkErrorRange(c.kind, c.code), c.result) << c.kind << " " << c.code;
}

}  // namespace
