#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "orvutil/cal_strm.h"

namespace {

std::string contents(const calstrm *s) {
    return std::string(calstrm_getbuffer(s) == nullptr ? "" : calstrm_getbuffer(s), calstrm_getlength(s));
}

TEST(Stream, GrowthAddsOneChunkBeyondTheNeed) {
    // Capacities after each write.
    const struct {
        int mode;
        unsigned chunk;
        std::vector<unsigned> writes, capacities;
    } cases[] = {
        {0, 4096, {10}, {4106}},
        {1, 4096, {8192}, {8192 + 8192 + 4096}},
        // Exactly filling the buffer grows it too; one byte short does not.
        {1, 4096, {8191, 1}, {8192, 8192 + 1 + 4096}},
        {0, 16, {4, 16, 1}, {20, 20 + 16 + 16, 52}},
        {0, 0, {3, 1}, {3, 4}},
    };
    for (const auto &c : cases) {
        calstrm *s = calstrm_new(c.mode);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(calstrm_getbuffer(s) == nullptr, c.mode == 0);
        calstrm_set_chunksize(s, c.chunk);
        EXPECT_EQ(calstrm_get_chunksize(s), c.chunk);
        std::string expected;
        for (size_t i = 0; i < c.writes.size(); ++i) {
            const std::string data(c.writes[i], static_cast<char>('a' + i));
            EXPECT_EQ(calstrm_write(s, data.data(), c.writes[i]), static_cast<int>(c.writes[i]));
            expected += data;
            EXPECT_EQ(s->capacity, c.capacities[i]) << c.chunk << " write " << i;
        }
        EXPECT_EQ(contents(s), expected);
        calstrm_delete(s);
    }
}

TEST(Stream, FailedGrowthLeavesTheRecordUnchanged) {
    calstrm *s = calstrm_new(0);
    calstrm_set_chunksize(s, 0);
    calstrm_write(s, "abc", 3);  // exactly full
    calstrm_set_chunksize(s, UINT_MAX);
    const calstrm before = *s;
    EXPECT_EQ(calstrm_write(s, "d", 1), -1);
    EXPECT_EQ(calstrm_putc(s, 'd'), -1);
    EXPECT_EQ(calstrm_printf(s, "%s", "xyz"), -1);
    EXPECT_EQ(std::memcmp(s, &before, sizeof before), 0);
    EXPECT_EQ(calstrm_write(s, "d", static_cast<unsigned>(INT_MAX) + 1u), -1);
    calstrm_delete(s);
    EXPECT_EQ(calstrm_write(nullptr, "a", 1), -1);
}

TEST(Stream, ReadsCopyFromTheStart) {
    calstrm *s = calstrm_new(0);
    char out[16] = {};
    EXPECT_EQ(calstrm_read(s, out, 4), -1);
    calstrm_write(s, "hello", 5);
    EXPECT_EQ(calstrm_read(s, out, 4), -1);  // writes moved the position too
    s->position = 2;
    EXPECT_EQ(calstrm_read(s, out, 2), 2);
    EXPECT_EQ(calstrm_read(s, out + 2, 10), 1);
    EXPECT_EQ(std::string(out, 3), "heh");
    EXPECT_EQ(calstrm_read(s, out, 10), -1);
    // A position beyond the length is pulled back before the next write.
    s->position = 1000;
    calstrm_putc(s, '!');
    EXPECT_EQ(contents(s), "hello!");
    calstrm_delete(s);
}

TEST(Stream, PrintfConversions) {
    const struct {
        std::function<int(calstrm *)> call;
        const char *expected;
    } cases[] = {
        {[](calstrm *s) { return calstrm_printf(s, "a%db%sc%%", 5, "x"); }, "a5bxc%"},
        {[](calstrm *s) { return calstrm_printf(s, "%d|%u|%x|%X|%o", INT_MIN, UINT_MAX, 255u, 255u, 8u); },
         "-2147483648|4294967295|ff|FF|10"},
        {[](calstrm *s) { return calstrm_printf(s, "%c%c", 'o', 'k'); }, "ok"},
        {[](calstrm *s) { return calstrm_printf(s, "%ld %lq", LONG_MIN, -7L); }, "-9223372036854775808 -7"},
        {[](calstrm *s) { return calstrm_printf(s, "%lu %lx %lX %lo", ULONG_MAX, 255UL, 255UL, 8UL); },
         "18446744073709551615 ff FF 10"},
        {[](calstrm *s) { return calstrm_printf(s, "[%s]", static_cast<const char *>(nullptr)); }, "[(null)]"},
    };
    for (const auto &c : cases) {
        calstrm *s = calstrm_new(0);
        calstrm_write(s, ">", 1);
        EXPECT_EQ(c.call(s), static_cast<int>(std::strlen(c.expected)));
        EXPECT_EQ(contents(s), std::string(">") + c.expected);
        calstrm_delete(s);
    }
}

TEST(StreamDeathTest, UnknownConversionsAbort) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char *format : {"%5d", "x%", "%l"}) {
        EXPECT_DEATH(
            {
                calstrm *s = calstrm_new(0);
                calstrm_printf(s, format, 1);
            },
            "")
            << format;
    }
}

}  // namespace
