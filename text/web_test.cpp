#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "orvutil/cal_parseutil.h"
#include "orvutil/url_encode_decode.h"

namespace {

// Takes a malloc'ed result; "<NULL>" for NULL.
std::string take(char *s) {
    std::string out = s ? s : "<NULL>";
    std::free(s);
    return out;
}

TEST(WebEncode, Encoders) {
    const std::tuple<char *(*)(const char *), const char *, const char *> cases[] = {
        {url_Encode, "a b-c/d", "a+b-c%2Fd"},
        {url_Encode, "_.*@~+\xE9", "_.*@%7E%2B%E9"},
        {url_EncodeHTML, "<a&b>\"'", "&lt;a&amp;b&gt;&quot;'"},
        {url_EncodeCookie, "a b,c;d%", "a+b%2Cc%3Bd%"},
        {full_Encode, "a b.c", "a+b^2Ec"},
        {alpha_Encode, "a b.c\xE9", "a_b_c_"},
        {url_Encode, "", ""},
        {url_Encode, nullptr, "<NULL>"},
        {cal_parseutil_URLencode, "a\tb c\x01\x7f", "a% 9b%20c% 1%7F"},  // "%2X": space-padded
        {cal_parseutil_URLencode, "caf\xC3\xA9-", "caf\xC3\xA9%2D"},
        {cal_parseutil_URLencode, "", "<NULL>"},
        {cal_parseutil_JSencode, "it's </script>", "it\\'s </'+'script>"},
        {cal_parseutil_JSencode, "a\\b\b\f\n\r\"/x", "a\\\\b\\b\\f\\n\\r\"/x"},
        {cal_parseutil_JSencode, "plain", "plain"},
    };
    for (const auto &[fn, in, out] : cases) EXPECT_EQ(take(fn(in)), out) << (in ? in : "NULL");
    std::vector<const char *> table(256, nullptr);  // a caller's own table
    table['a'] = "<long>";
    EXPECT_EQ(take(url_EncodeCore(table.data(), "abc")), "<long>bc");
    // Worst cases fill the whole buffer.
    EXPECT_EQ(take(cal_parseutil_URLencode(std::string(1 << 20, '/').c_str())).size(), 3u << 20);
    EXPECT_EQ(take(cal_parseutil_JSencode(std::string(1 << 20, '\n').c_str())).size(), 2u << 20);
    EXPECT_EQ(take(url_EncodeHTML(std::string(1 << 20, '"').c_str())).size(), 6u << 20);
}

TEST(WebEncode, EveryByteRoundTripsAndTablesAreReadyOnEveryThread) {
    std::string bytes;
    for (int i = 1; i < 256; ++i) bytes += static_cast<char>(i);
    std::vector<std::thread> threads;
    std::vector<std::string> url(4), full(4);
    for (size_t i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            url[i] = take(url_Decode(take(url_Encode(bytes.c_str())).c_str()));
            full[i] = take(full_Decode(take(full_Encode(bytes.c_str())).c_str()));
        });
    for (auto &t : threads) t.join();
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(url[i] == bytes && full[i] == bytes) << i;
    EXPECT_EQ(take(alpha_Encode(bytes.c_str()))
                  .find_first_not_of("_0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"),
              std::string::npos);
}

TEST(WebDecode, HexDigitsAndDecoders) {
    for (const auto &[c, v] : {std::pair<int, int>{'9', 9}, {'a', 10}, {'F', 15}, {'g', 0}, {-1, 0}, {0x141, 0}})
        EXPECT_EQ(xdtoi(c), v) << c;
    for (const auto &[p, v] : {std::pair{"fF", 255}, {"4", 0}, {"g1", 0}}) EXPECT_EQ(xtoi(p), v) << p;
    const std::pair<const char *, const char *> url[] = {
        {"%41%zz+%00", "A%zz %00"},
        {"%", "%"},
        {"%4", "%4"},
        {"%%41", "%A"},
        {"%2541", "%41"},
        {"0123456789abcde%41%4g0123456789abcdefghij", "0123456789abcdeA%4g0123456789abcdefghij"},  // across blocks
    };
    for (const auto &[in, out] : url) EXPECT_EQ(take(url_Decode(in)), out) << in;
    EXPECT_EQ(take(full_Decode("a+b^2Ec^")), "a b.c^");
    EXPECT_EQ(url_Decode(nullptr), nullptr);
}

TEST(WebParseutil, InPlaceDecoders) {
    // text, plus flag (-1: unescape_escaped_unicode), result
    const std::tuple<const char *, int, std::string> cases[] = {
        {"a+b%2Fc%2fd%u00E9", 1, "a b/c%2fd\\u00E9"},  // lower-case hex is not decoded
        {"a+b%2Fc%2fd%u00E9", 0, "a+b/c%2fd\\u00E9"},
        {"%252541", 0, "%2541"},  // decoded once only
        {"100%", 1, "100%"},
        {"%%41", 0, "%A"},
        {"%41%00tail", 0, "A"},
        {"%u00E9", -1, "\\u00E9"},
        {"a%41b", -1, "aAb"},
        {"%4", -1, "%4"},
        {"x%e9", -1, "x\xE9"},  // digits unchecked: ('e' - '7') * 16 + 9, low byte
    };
    for (const auto &[in, plus, out] : cases) {
        std::string s = in;
        char *r = plus < 0 ? cal_parseutil_unescape_escaped_unicode(s.data()) : cal_parseutil_unescape(s.data(), plus);
        EXPECT_EQ(r, s.data());
        EXPECT_EQ(std::string(s.c_str()), out) << in << " " << plus;
    }
    EXPECT_EQ(cal_parseutil_unescape(nullptr, 1), nullptr);
}

TEST(WebParseutil, DecodeUrl) {
    const std::tuple<const char *, int, std::vector<std::string>> cases[] = {
        {"a=1& b=x+y", 10, {"a=1", "b=x y"}},
        {"a=1&&b=2&", 10, {"a=1", "b=2"}},
        {"a&b&c&d", 3, {"a", "b"}},
        {"a", 1, {}},
        {"x=%2541", 5, {"x=%41"}},
    };
    for (const auto &[query, max, entries] : cases) {
        std::string q = query;
        std::vector<char *> v(static_cast<size_t>(max), q.data());
        const int n = cal_parseutil_decode_url(q.data(), max, v.data());
        EXPECT_EQ(std::vector<std::string>(v.begin(), v.begin() + n), entries) << query;
        EXPECT_EQ(v[static_cast<size_t>(n)], nullptr);
    }
    char q[] = "a";
    EXPECT_EQ(cal_parseutil_decode_url(nullptr, 2, nullptr), 0);
    EXPECT_EQ(cal_parseutil_decode_url(q, 0, nullptr), 0);
}

TEST(WebParseutil, ScramblerKeyCycle) {
    std::string enc(4, '?');
    char *dst = enc.data();
    cal_parseutil_dumbEnCrypt("a9Z0", &dst, 4);
    EXPECT_EQ(enc, "bc\\3");  // key 1 3 2 3: a+1, '9'+3 wraps to 'c', Z+2, '0'+3
}

}  // namespace
