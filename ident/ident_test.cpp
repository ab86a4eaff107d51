#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "orvutil/cal_guid.h"
#include "orvutil/utilmd5.h"

namespace {

std::string hex(const unsigned char *d, size_t n) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < n; ++i) {
        out += digits[d[i] >> 4];
        out += digits[d[i] & 15];
    }
    return out;
}

// Digest of text fed in pieces cut at the given split points, with an empty
// null piece after each.
std::string md5_split(const std::string &text, const std::vector<size_t> &cuts) {
    util_MD5_CTX ctx;
    util_MD5Init(&ctx);
    size_t at = 0;
    for (size_t cut : cuts) {
        cut = std::min(cut, text.size());
        util_MD5Update(&ctx, reinterpret_cast<const unsigned char *>(text.data()) + at,
                       static_cast<unsigned>(cut - at));
        util_MD5Update(&ctx, nullptr, 0);
        at = cut;
    }
    util_MD5Update(&ctx, reinterpret_cast<const unsigned char *>(text.data()) + at,
                   static_cast<unsigned>(text.size() - at));
    util_MD5Final(&ctx);
    return hex(ctx.digest, 16);
}

struct Md5Case {
    std::string text;
    const char *digest;
};

const Md5Case kRfc1321Suite[] = {
    {"", "d41d8cd98f00b204e9800998ecf8427e"},
    {"a", "0cc175b9c0f1b6a831c399e269772661"},
    {"abc", "900150983cd24fb0d6963f7d28e17f72"},
    {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
    {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
    {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
    {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "57edf4a22be3c955ac49da2e2107b67a"},
};

TEST(Md5, Rfc1321SuiteWholeAndInPieces) {
    // Cuts around the 56-byte padding and 64-byte block boundaries.
    for (const auto &c : kRfc1321Suite) {
        EXPECT_EQ(md5_split(c.text, {}), c.digest) << c.text;
        EXPECT_EQ(md5_split(c.text, {1, 55, 56, 63, 64, 65}), c.digest) << c.text;
    }
    // A known long value, cut inside blocks: one million 'a'.
    EXPECT_EQ(md5_split(std::string(1000000, 'a'), {333333, 333334}), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(Guid, LayoutHoldsTimeCounterAndPid) {
    unsigned char a[16], b[16];
    const uint32_t before = static_cast<uint32_t>(time(nullptr));
    ASSERT_EQ(cal_GenerateGUID(a), 0);
    ASSERT_EQ(cal_GenerateGUID(b), 0);
    uint32_t wa[4], wb[4];
    std::memcpy(wa, a, 16);
    std::memcpy(wb, b, 16);
    EXPECT_GE(wa[0], before);
    EXPECT_LE(wa[0], before + 2);
    EXPECT_EQ(wb[2], wa[2] + 1);  // the counter moves by one per GUID
    EXPECT_EQ(wa[3], static_cast<uint32_t>(getpid()));
    char text[65];
    ASSERT_EQ(cal_GetGuidString(text, sizeof text), 0);
    EXPECT_TRUE(std::regex_match(text, std::regex("0{32}[0-9a-f]{32}"))) << text;
    EXPECT_EQ(cal_GetGuidString(text, 64), 1);
}

TEST(Guid, CountersAreUniqueAcrossThreads) {
    constexpr int kThreads = 4, kEach = 2000;
    std::vector<std::vector<uint32_t>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&seen, t] {
            for (int i = 0; i < kEach; ++i) {
                unsigned char g[16];
                cal_GenerateGUID(g);
                uint32_t w[4];
                std::memcpy(w, g, 16);
                seen[t].push_back(w[2]);
            }
        });
    }
    for (auto &th : threads) th.join();
    std::set<uint32_t> all;
    for (const auto &v : seen) all.insert(v.begin(), v.end());
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach));
}

TEST(Guid, StringFormsRespectTheirSizes) {
    const unsigned char g[16] = {0x00, 0x01, 0x7f, 0x80, 0xab, 0xcd, 0xef, 0xff,
                                 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x90};
    const std::string digits = "00017f80abcdefff1020304050607090";
    struct Case {
        int (*fn)(char *, int, const unsigned char *);
        int size;
        int result;
        std::string text;
    };
    const Case cases[] = {
        {cal_strguid, 32, 1, ""},
        {cal_strguid, 33, 0, digits},
        {cal_strguid, -5, 1, ""},
        {cal_strguid_128, 64, 1, ""},
        {cal_strguid_128, 65, 0, std::string(32, '0') + digits},
    };
    for (const auto &c : cases) {
        char buf[80];
        std::memset(buf, '#', sizeof buf);
        EXPECT_EQ(c.fn(buf, c.size, g), c.result) << c.size;
        if (c.result == 0) {
            EXPECT_EQ(std::string(buf), c.text);
            EXPECT_EQ(buf[c.size], '#');  // nothing written past the terminator
        } else {
            EXPECT_EQ(buf[0], '#');  // nothing written at all
        }
    }
    EXPECT_EQ(cal_strguid(nullptr, 33, g), 1);
}

}  // namespace
