#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "orvutil/cal_parseutil.h"
#include "orvutil/url_encode_decode.h"
#include "text_internal.hpp"

namespace {

// Takes a malloc'ed result; "<NULL>" for NULL.
std::string take(char *s) {
    if (s == nullptr) return "<NULL>";
    std::string out = s;
    std::free(s);
    return out;
}

std::string all_bytes() {
    std::string s;
    for (int i = 1; i < 256; ++i) s += static_cast<char>(i);
    return s;
}

TEST(WebEncode, TableEncoders) {
    struct Case {
        char *(*fn)(const char *);
        const char *in, *out;
    };
    const Case cases[] = {
        {url_Encode, "a b-c/d", "a+b-c%2Fd"},
        {url_Encode, "_.*@~\xE9", "_.*@%7E%E9"},
        {url_EncodeHTML, "<a&b>", "&lt;a&amp;b&gt;"},
        {url_EncodeHTML, "\"'", "&quot;'"},
        {url_EncodeCookie, "a b,c;d", "a+b%2Cc%3Bd"},
        {url_EncodeCookie, "%=", "%="},
        {full_Encode, "a b.c", "a+b^2Ec"},
        {alpha_Encode, "a b.c", "a_b_c"},
        {url_Encode, "", ""},
    };
    for (const auto &c : cases) EXPECT_EQ(take(c.fn(c.in)), c.out) << c.in;
    for (auto fn : {url_Encode, url_EncodeHTML, url_EncodeCookie, full_Encode, alpha_Encode})
        EXPECT_EQ(fn(nullptr), nullptr);
}

TEST(WebEncode, EveryByteRoundTripsThroughItsDecoder) {
    const std::string bytes = all_bytes();
    char *u = url_Encode(bytes.c_str());
    EXPECT_EQ(take(url_Decode(u)), bytes);
    char *f = full_Encode(bytes.c_str());
    EXPECT_EQ(take(full_Decode(f)), bytes);
    const std::string url = take(u), full = take(f);
    EXPECT_EQ(url.find_first_not_of("%+-_.*@0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"),
              std::string::npos);
    EXPECT_EQ(full.size(), 62 + 1 + 192 * 3u);  // alphanumerics, '+', the rest as ^XX
    const std::string alpha = take(alpha_Encode(bytes.c_str()));
    EXPECT_EQ(alpha.size(), bytes.size());
    EXPECT_EQ(alpha.find_first_not_of("_0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"),
              std::string::npos);
}

TEST(WebEncode, CoreWithACallerTable) {
    std::vector<const char *> table(256, nullptr);
    table['a'] = "<long replacement>";
    table['b'] = "";
    EXPECT_EQ(take(url_EncodeCore(table.data(), "abc")), "<long replacement>bc");
    EXPECT_EQ(url_EncodeCore(nullptr, "abc"), nullptr);
    EXPECT_EQ(url_EncodeCore(table.data(), nullptr), nullptr);
}

TEST(WebEncode, TablesAreReadyOnEveryThread) {
    std::vector<std::thread> threads;
    std::vector<std::string> got(8);
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&got, i] { got[static_cast<size_t>(i)] = take(url_Encode("a b/c")) + take(full_Encode("/")); });
    for (auto &t : threads) t.join();
    for (const auto &g : got) EXPECT_EQ(g, "a+b%2Fc^2F");
}

TEST(WebEncode, SizesThatWouldWrapAreRefused) {
    size_t out = 0;
    const size_t near = (SIZE_MAX - 6) / 6;
    EXPECT_TRUE(orv::text::scaled_size(near, 6, 6, out));
    EXPECT_EQ(out, near * 6 + 6);
    EXPECT_FALSE(orv::text::scaled_size(near + 1, 6, 6, out));
    EXPECT_FALSE(orv::text::scaled_size(SIZE_MAX / 5, 5, 1, out));
    EXPECT_FALSE(orv::text::scaled_size(SIZE_MAX / 3 + 1, 3, 0, out));
    EXPECT_TRUE(orv::text::scaled_size(0, 6, 6, out));
    EXPECT_EQ(out, 6u);
}

TEST(WebDecode, HexDigits) {
    const std::pair<int, int> digits[] = {{'0', 0}, {'9', 9}, {'a', 10}, {'F', 15}, {'g', 0}, {' ', 0}, {-1, 0}, {0x141, 0}};
    for (const auto &[c, v] : digits) EXPECT_EQ(xdtoi(c), v) << c;
    const std::pair<const char *, int> pairs[] = {{"41", 0x41}, {"fF", 255}, {"4", 0}, {"", 0}, {"g1", 0}, {"1g", 0}, {"00", 0}};
    for (const auto &[p, v] : pairs) EXPECT_EQ(xtoi(p), v) << p;
    EXPECT_EQ(xtoi(nullptr), 0);
}

TEST(WebDecode, Decoders) {
    const std::pair<const char *, const char *> url[] = {
        {"%41%zz+%00", "A%zz %00"}, {"%", "%"}, {"%4", "%4"}, {"%%41", "%A"}, {"%2541", "%41"}, {"a%2fb", "a/b"},
    };
    for (const auto &[in, out] : url) EXPECT_EQ(take(url_Decode(in)), out) << in;
    EXPECT_EQ(take(full_Decode("a+b^2Ec^")), "a b.c^");
    EXPECT_EQ(url_Decode(nullptr), nullptr);
    EXPECT_EQ(full_Decode(nullptr), nullptr);
}

TEST(WebParseutil, URLencode) {
    const std::pair<const char *, const char *> cases[] = {
        {"a\tb c", "a% 9b%20c"}, {"A-z", "A%2Dz"}, {"\x01\x7f", "% 1%7F"}, {"caf\xC3\xA9", "caf\xC3\xA9"}, {"%", "%25"},
    };
    for (const auto &[in, out] : cases) EXPECT_EQ(take(cal_parseutil_URLencode(in)), out) << in;
    EXPECT_EQ(cal_parseutil_URLencode(nullptr), nullptr);
    EXPECT_EQ(cal_parseutil_URLencode(""), nullptr);
    // Worst case: three bytes out per byte in, terminator reserved.
    const std::string worst(1 << 20, '/');
    const std::string got = take(cal_parseutil_URLencode(worst.c_str()));
    EXPECT_EQ(got.size(), worst.size() * 3);
    EXPECT_EQ(got.substr(got.size() - 6), "%2F%2F");
}

TEST(WebParseutil, JSencode) {
    const std::pair<const char *, const char *> cases[] = {
        {"it's </script>", "it\\'s </'+'script>"},
        {"a\\b\b\f\n\r\"", "a\\\\b\\b\\f\\n\\r\""},
        {"/x/", "/x/"},
        {"plain \"text\"", "plain \"text\""},
        {"", ""},
        {"/s/s", "/'+'s/'+'s"},
    };
    for (const auto &[in, out] : cases) EXPECT_EQ(take(cal_parseutil_JSencode(in)), out) << in;
    EXPECT_EQ(cal_parseutil_JSencode(nullptr), nullptr);
    const std::string worst(1 << 20, '\n');
    EXPECT_EQ(take(cal_parseutil_JSencode(worst.c_str())).size(), worst.size() * 2);
}

TEST(WebParseutil, Unescape) {
    struct Case {
        const char *in;
        int plus;
        const char *out;
    };
    const Case cases[] = {
        {"a+b%2Fc%2fd%u00E9", 1, "a b/c%2fd\\u00E9"},
        {"a+b%2Fc%2fd%u00E9", 0, "a+b/c%2fd\\u00E9"},
        {"%2541", 1, "%41"},  // decoded once only
        {"%252541", 0, "%2541"},
        {"100%", 1, "100%"},
        {"%4", 0, "%4"},
        {"%%41", 0, "%A"},
        {"no escapes+", 0, "no escapes+"},
        {"%41%00tail", 0, "A"},
        {"", 1, ""},
    };
    for (const auto &c : cases) {
        std::string s = c.in;
        EXPECT_EQ(cal_parseutil_unescape(s.data(), c.plus), s.data());
        EXPECT_STREQ(s.c_str(), c.out) << c.in << " plus " << c.plus;
    }
    EXPECT_EQ(cal_parseutil_unescape(nullptr, 1), nullptr);
}

TEST(WebParseutil, UnescapeEscapedUnicode) {
    const std::pair<const char *, std::string> cases[] = {
        {"%u00E9", "\\u00E9"}, {"a%41b", "aAb"}, {"%4", "%4"}, {"%", "%"}, {"x%e9", "x\xE9"},  // (46 * 16 + 9) & 0xFF
        {"%zz", std::string(1, static_cast<char>((('z' - '7') * 16 + ('z' - '7')) & 0xFF))},
    };
    for (const auto &[in, out] : cases) {
        std::string s = in;
        cal_parseutil_unescape_escaped_unicode(s.data());
        EXPECT_EQ(std::string(s.c_str()), out) << in;
    }
    EXPECT_EQ(cal_parseutil_unescape_escaped_unicode(nullptr), nullptr);
}

TEST(WebParseutil, DecodeUrl) {
    struct Case {
        const char *query;
        int max;
        std::vector<std::string> entries;
    };
    const Case cases[] = {
        {"a=1& b=x+y", 10, {"a=1", "b=x y"}},
        {"a=1&&b=2&", 10, {"a=1", "b=2"}},
        {"a&b&c&d", 3, {"a", "b"}},
        {"a", 1, {}},
        {"", 5, {}},
        {"x=%2541", 5, {"x=%41"}},
    };
    for (const auto &c : cases) {
        std::string q = c.query;
        std::vector<char *> v(static_cast<size_t>(c.max), reinterpret_cast<char *>(1));
        const int n = cal_parseutil_decode_url(q.data(), c.max, v.data());
        ASSERT_EQ(n, static_cast<int>(c.entries.size())) << c.query;
        for (int i = 0; i < n; ++i) EXPECT_STREQ(v[static_cast<size_t>(i)], c.entries[static_cast<size_t>(i)].c_str());
        EXPECT_EQ(v[static_cast<size_t>(n)], nullptr);
    }
    char *v[2];
    char q[] = "a";
    EXPECT_EQ(cal_parseutil_decode_url(nullptr, 2, v), 0);
    EXPECT_EQ(cal_parseutil_decode_url(q, 2, nullptr), 0);
    EXPECT_EQ(cal_parseutil_decode_url(q, 0, v), 0);
}

TEST(WebParseutil, ScramblerRoundTrips) {
    // A fixed vector pins the key; digits wrap into letters.
    const char plain[] = "a9Z0";
    std::string enc(4, '?');
    char *dst = enc.data();
    EXPECT_EQ(cal_parseutil_dumbEnCrypt(plain, &dst, 4), 0);
    EXPECT_EQ(enc, std::string("b") + "c" + "\\" + "3");  // a+1, '9'+3 wraps to 'c', Z+2, 0+3
    std::mt19937 rng(9);
    const std::string keep = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz!#$%&()*+,-./:;<=>?@[]{|}~ \x80\xC3";
    for (int round = 0; round < 200; ++round) {
        std::string text(rng() % 40 + 1, ' ');
        for (auto &c : text) c = keep[rng() % keep.size()];
        text[rng() % text.size()] = '\0';  // a zero byte inside is carried through
        std::string scrambled(text.size(), '?'), back(text.size(), '?');
        char *s = scrambled.data();
        char *b = back.data();
        const int n = static_cast<int>(text.size());
        cal_parseutil_dumbEnCrypt(text.data(), &s, n);
        cal_parseutil_dumbDeCrypt(scrambled.data(), &b, n);
        ASSERT_EQ(back, text) << round;
    }
    char buf[4] = "abc";
    char *p = buf;
    char *null_dst = nullptr;
    EXPECT_EQ(cal_parseutil_dumbEnCrypt(nullptr, &p, 3), 0);
    EXPECT_EQ(cal_parseutil_dumbEnCrypt("x", nullptr, 1), 0);
    EXPECT_EQ(cal_parseutil_dumbDeCrypt("x", &null_dst, 1), 0);
    EXPECT_STREQ(buf, "abc");
}

}  // namespace
