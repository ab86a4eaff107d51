#include <gtest/gtest.h>

#include <string>

#include <plstr.h>

#include "orvutil/cal_parseutil.h"

namespace {

constexpr int kInvalid = CAL_PARSEUTIL_E_INVALIDARG;

TEST(Calid, StatusCodesHaveTheirBitPatterns) {
    EXPECT_EQ(static_cast<unsigned>(CAL_PARSEUTIL_E_INVALIDARG), 0x80070057u);
    EXPECT_EQ(static_cast<unsigned>(CAL_PARSEUTIL_E_OUTOFMEMORY), 0x8007000Eu);
}

TEST(Calid, CharacterSetsOverAllBytes) {
    const std::string calid_extra = "_-.@'%/!";
    const std::string group_extra = "_-. ";
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        const bool alnum = (i >= '0' && i <= '9') || (i >= 'A' && i <= 'Z') || (i >= 'a' && i <= 'z');
        const bool calid = i != 0 && (alnum || calid_extra.find(c) != std::string::npos);
        const bool group = i != 0 && (alnum || group_extra.find(c) != std::string::npos);
        EXPECT_EQ(cal_parseutil_isNotAllowableCalidChar(c), calid ? 0 : 1) << i;
        EXPECT_EQ(cal_parseutil_isNotAllowableGroupIDChar(c), group ? 0 : 1) << i;
    }
}

TEST(Calid, Predicates) {
    struct Case {
        const char *text;
        int calid;
        int group;
    };
    const Case cases[] = {
        {"a:b", 1, 0},      {"a:b:c", 0, 0},  {":", 1, 0},         {"", 0, 0},
        {"u1@d1:2", 1, 0},  {"a b", 0, 1},    {"Team A.1", 0, 1},  {"a@b", 1, 0},
        {"x\xE9", 0, 0},    {"it's", 1, 0},   {"a_b-c.d", 1, 1},   {"50%/!", 1, 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(cal_parseutil_isValidCalid(c.text), c.calid) << c.text;
        EXPECT_EQ(cal_parseutil_isValidGroupID(c.text), c.group) << c.text;
    }
    EXPECT_EQ(cal_parseutil_isValidCalid(nullptr), 0);
    EXPECT_EQ(cal_parseutil_isValidGroupID(nullptr), 0);
}

TEST(Calid, CleanerStripsEveryDisallowedByteIncludingColons) {
    struct Case {
        const char *in;
        const char *out;
        int rc;
    };
    const Case cases[] = {
        {"a b:c", "abc", 1}, {"  ", "", 0}, {"", "", 0}, {"u@d", "u@d", 1}, {"\xE9x\xE9", "x", 1}, {"::", "", 0},
    };
    for (const auto &c : cases) {
        std::string buf = c.in;
        char *p = buf.data();
        EXPECT_EQ(cal_parseutil_validate_calid(&p), c.rc) << c.in;
        EXPECT_STREQ(p, c.out) << c.in;
    }
    char *null_string = nullptr;
    EXPECT_EQ(cal_parseutil_validate_calid(&null_string), 0);
    EXPECT_EQ(cal_parseutil_validate_calid(nullptr), 0);
}

TEST(Calid, StructuralValidation) {
    const char *valid[] = {"x", "x:y", "u1@d1:2", "a@b@c", "a@bc:d", "x y"};
    const char *invalid[] = {":x", "x:", "@x", "x@", "x@:y", "x:y@z", ":", "a@"};
    for (const char *s : valid) {
        int flag = -1;
        EXPECT_EQ(cal_parseutil_validate_calid_for_cld(s, &flag), 0);
        EXPECT_EQ(flag, 1) << s;
    }
    for (const char *s : invalid) {
        int flag = -1;
        EXPECT_EQ(cal_parseutil_validate_calid_for_cld(s, &flag), 0);
        EXPECT_EQ(flag, 0) << s;
    }
    int flag = -1;
    EXPECT_EQ(cal_parseutil_validate_calid_for_cld(nullptr, &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(cal_parseutil_validate_calid_for_cld("x", nullptr), kInvalid);
}

using Extractor = int (*)(const char *, char **);

struct ExtractCase {
    const char *calid;
    const char *uid;
    const char *domain;  // nullptr: stays NULL
    const char *suffix;
};

TEST(Calid, Extractors) {
    const ExtractCase cases[] = {
        {"u1@d1:2", "u1@d1", "d1:", "2"},  // the domain keeps the colon
        {"a@b:c", "a@b", "b:", "c"},
        {"x", "x", nullptr, nullptr},
        {"x:y", "x", nullptr, "y"},
        {"u@dom", "u@dom", "dom", nullptr},
    };
    const Extractor fns[] = {cal_parseutil_get_uid_from_calid, cal_parseutil_get_domain_from_calid,
                             cal_parseutil_get_suffix_from_calid};
    for (const auto &c : cases) {
        const char *expect[] = {c.uid, c.domain, c.suffix};
        for (int f = 0; f < 3; ++f) {
            char *out = nullptr;
            EXPECT_EQ(fns[f](c.calid, &out), 0) << c.calid << " " << f;
            if (expect[f] == nullptr)
                EXPECT_EQ(out, nullptr) << c.calid << " " << f;
            else
                EXPECT_STREQ(out, expect[f]) << c.calid << " " << f;
            if (out) PL_strfree(out);
        }
    }
}

TEST(Calid, ExtractorsRefuseBadArgumentsAndInvalidCalids) {
    const Extractor fns[] = {cal_parseutil_get_uid_from_calid, cal_parseutil_get_domain_from_calid,
                             cal_parseutil_get_suffix_from_calid};
    char busy[] = "occupied";
    for (Extractor fn : fns) {
        char *out = nullptr;
        EXPECT_EQ(fn("x@", &out), kInvalid);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(fn(nullptr, &out), kInvalid);
        EXPECT_EQ(fn("x", nullptr), kInvalid);
        out = busy;
        EXPECT_EQ(fn("x", &out), kInvalid);
        EXPECT_EQ(out, busy);
    }
}

TEST(Calid, Builder) {
    struct Case {
        const char *uid, *domain, *suffix;
        int rc;
        const char *out;
    };
    const Case cases[] = {
        {"u", "@d", ":s", 0, "u@d:s"},
        {"u", "d", nullptr, 0, "ud"},   // no delimiter is inserted
        {nullptr, nullptr, ":s", kInvalid, ":s"},  // invalid: built string kept
        {"u", "@", nullptr, kInvalid, "u@"},
        {nullptr, nullptr, nullptr, kInvalid, nullptr},
    };
    for (const auto &c : cases) {
        char *out = nullptr;
        int flag = 7;
        EXPECT_EQ(cal_parseutil_create_calid(c.uid, c.domain, c.suffix, &out, &flag), c.rc);
        EXPECT_EQ(flag, 0);
        if (c.out == nullptr)
            EXPECT_EQ(out, nullptr);
        else
            EXPECT_STREQ(out, c.out);
        if (out) PL_strfree(out);
    }
    char *out = nullptr;
    EXPECT_EQ(cal_parseutil_create_calid("u", nullptr, nullptr, &out, nullptr), kInvalid);
    EXPECT_EQ(cal_parseutil_create_calid("u", nullptr, nullptr, nullptr, nullptr), kInvalid);
    int flag = 5;
    char busy[] = "x";
    out = busy;
    EXPECT_EQ(cal_parseutil_create_calid("u", nullptr, nullptr, &out, &flag), kInvalid);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(out, busy);
}

TEST(Calid, MebibyteIdentifiers) {
    std::string big(1 << 20, 'a');
    big[1000] = '@';
    big[2000] = ':';
    EXPECT_EQ(cal_parseutil_isValidCalid(big.c_str()), 1);
    char *domain = nullptr;
    ASSERT_EQ(cal_parseutil_get_domain_from_calid(big.c_str(), &domain), 0);
    EXPECT_EQ(std::string(domain), std::string(999, 'a') + ":");
    PL_strfree(domain);
    char *calid = nullptr;
    int flag = 0;
    ASSERT_EQ(cal_parseutil_create_calid(big.c_str(), nullptr, nullptr, &calid, &flag), 0);
    EXPECT_EQ(std::string(calid), big);
    PL_strfree(calid);
}

}  // namespace
