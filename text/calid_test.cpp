#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>

#include <plstr.h>

#include "orvutil/cal_parseutil.h"

namespace {

constexpr int kInvalid = CAL_PARSEUTIL_E_INVALIDARG;

TEST(Calid, PredicatesAndCleaner) {
    // text, isValidCalid, isValidGroupID
    const std::tuple<const char *, int, int> cases[] = {
        {"a:b", 1, 0},    {"a:b:c", 0, 0},    {":", 1, 0},     {"", 0, 0},      {"u1@d1:2", 1, 0},
        {"a b", 0, 1},    {"Team A.1", 0, 1}, {"a@b", 1, 0},   {"x\xE9", 0, 0}, {"it's_-.%/!", 1, 0},
        {"a_-. b", 0, 1}, {"a\tb", 0, 0},     {nullptr, 0, 0},
    };
    for (const auto &[text, calid, group] : cases) {
        EXPECT_EQ(cal_parseutil_isValidCalid(text), calid) << (text != nullptr ? text : "NULL");
        EXPECT_EQ(cal_parseutil_isValidGroupID(text), group) << (text != nullptr ? text : "NULL");
    }
    // The cleaner drops colons too.
    const std::tuple<const char *, const char *, int> cleaned[] = {
        {"a b:c", "abc", 1}, {"  ", "", 0}, {"", "", 0}, {"\xE9x\xE9", "x", 1}, {"u@d", "u@d", 1}};
    for (const auto &[in, out, rc] : cleaned) {
        std::string buf = in;
        char *p = buf.data();
        EXPECT_EQ(cal_parseutil_validate_calid(&p), rc) << in;
        EXPECT_STREQ(p, out);
    }
    char *null_string = nullptr;
    EXPECT_EQ(cal_parseutil_validate_calid(&null_string), 0);
    EXPECT_EQ(cal_parseutil_validate_calid(nullptr), 0);
}

TEST(Calid, StructuralValidation) {
    const std::pair<const char *, int> cases[] = {
        {"x", 1},  {"x:y", 1}, {"u1@d1:2", 1}, {"a@b@c", 1}, {"x y", 1}, {":x", 0},    {"x:", 0},
        {"@x", 0}, {"x@", 0},  {"x@:y", 0},    {"x:y@z", 0}, {":", 0},   {nullptr, 0},
    };
    for (const auto &[calid, valid] : cases) {
        int flag = -1;
        EXPECT_EQ(cal_parseutil_validate_calid_for_cld(calid, &flag), 0);
        EXPECT_EQ(flag, valid) << (calid ? calid : "NULL");
    }
    EXPECT_EQ(cal_parseutil_validate_calid_for_cld("x", nullptr), kInvalid);
}

TEST(Calid, Extractors) {
    // calid, then uid, domain and suffix (nullptr: the output stays NULL)
    const std::array<const char *, 4> cases[] = {
        {"u1@d1:2", "u1@d1", "d1:", "2"},  // the domain keeps the colon
        {"x", "x", nullptr, nullptr},
        {"x:y", "x", nullptr, "y"},
        {"u@dom", "u@dom", "dom", nullptr},
    };
    int (*const fns[])(const char *, char **) = {cal_parseutil_get_uid_from_calid, cal_parseutil_get_domain_from_calid,
                                                 cal_parseutil_get_suffix_from_calid};
    char busy[] = "occupied";
    for (size_t f = 0; f < 3; ++f) {
        for (const auto &c : cases) {
            char *out = nullptr;
            EXPECT_EQ(fns[f](c[0], &out), 0);
            EXPECT_STREQ(out, c[f + 1]) << c[0] << " " << f;
            PL_strfree(out);
        }
        char *out = nullptr;
        EXPECT_EQ(fns[f]("x@", &out), kInvalid);
        EXPECT_EQ(fns[f](nullptr, &out), kInvalid);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(fns[f]("x", nullptr), kInvalid);
        out = busy;
        EXPECT_EQ(fns[f]("x", &out), kInvalid);  // the output must point to NULL
        EXPECT_EQ(out, busy);
    }
}

TEST(Calid, Builder) {
    // uid, domain, suffix, status, built string
    const std::tuple<const char *, const char *, const char *, int, const char *> cases[] = {
        {"u", "@d", ":s", 0, "u@d:s"},
        {"u", "d", nullptr, 0, "ud"},              // no delimiter is inserted
        {nullptr, nullptr, ":s", kInvalid, ":s"},  // invalid: the string is kept
        {nullptr, nullptr, nullptr, kInvalid, nullptr},
    };
    for (const auto &[uid, domain, suffix, rc, built] : cases) {
        char *out = nullptr;
        int flag = 7;
        EXPECT_EQ(cal_parseutil_create_calid(uid, domain, suffix, &out, &flag), rc);
        EXPECT_EQ(flag, 0);
        EXPECT_STREQ(out, built);
        PL_strfree(out);
    }
    char *out = nullptr;
    int flag = 0;
    EXPECT_EQ(cal_parseutil_create_calid("u", nullptr, nullptr, &out, nullptr), kInvalid);
    EXPECT_EQ(cal_parseutil_create_calid("u", nullptr, nullptr, nullptr, &flag), kInvalid);
    const std::string big(1 << 20, 'a');  // a mebibyte uid goes through whole
    ASSERT_EQ(cal_parseutil_create_calid(big.c_str(), "@d", nullptr, &out, &flag), 0);
    EXPECT_EQ(std::string(out), big + "@d");
    PL_strfree(out);
}

}  // namespace
