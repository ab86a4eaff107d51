#include <gtest/gtest.h>

#include <prtime.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/cal_time.h"
#include "orvutil/platform/sys.h"

namespace {

constexpr time_t k2024 = 1704067200;     // 2024-01-01T00:00:00Z
constexpr time_t k2100Jul = 4118126400;  // 2100-07-01T12:00:00Z
constexpr time_t k2500 = 16725225600;    // 2500-01-01T00:00:00Z
const char *const UTC = "UTC", *const NY = "America/New_York", *const IN = "Asia/Kolkata",
                  *const LH = "Australia/Lord_Howe";

using Formatter = int (*)(time_t, char *);

std::string fmt(Formatter f, time_t t) {
    char buf[32];
    std::memset(buf, '#', sizeof buf);
    const int n = f(t, buf);
    return n == static_cast<int>(std::strlen(buf)) ? buf : "count differs";
}

// The reference formatter: NSPR's explode and format, with the platform's
// 64-bit local time supplying the offset where NSPR's own stops (past 2038).
PRTimeParameters PR_CALLBACK wide_local_parameters(const PRExplodedTime *gmt) {
    PRTimeParameters params = {0, 0};
    const time_t secs = static_cast<time_t>(PR_ImplodeTime(gmt) / PR_USEC_PER_SEC);
    struct tm local;
    if (mtlocaltime(&secs, &local) != nullptr) params.tp_gmt_offset = static_cast<PRInt32>(local.tm_gmtoff);
    return params;
}

std::string reference_format(time_t t, bool local, const char *format) {
    if (t < -62135596800 || t > 253402300799) return "";
    PRTimeParamFn params = PR_GMTParameters;
    if (local) params = (t >= INT32_MIN && t <= INT32_MAX) ? PR_LocalTimeParameters : wide_local_parameters;
    PRExplodedTime exploded;
    PR_ExplodeTime(static_cast<PRTime>(t) * PR_USEC_PER_SEC, params, &exploded);
    if (exploded.tm_year < 1 || exploded.tm_year > 9999) return "";
    char buf[32];
    return PR_FormatTimeUSEnglish(buf, sizeof buf, format, &exploded) != 0 ? buf : "";
}

std::string text(duration d) {
    auto buf = std::make_unique<char[]>(CAL_TIME_DURATION_SIZE);  // exact size: ASan sees overruns
    cal_time_duration_to_buf(&d, buf.get());
    return buf.get();
}

bool same(const duration &a, const duration &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(DateStrings, ValidationByLengthAndField) {
    struct Case {
        const char *s;
        int valid, date_only;
    };
    const Case cases[] = {{"20240229", 1, 1},
                          {"21000229", 1, 1},
                          {"19000229", 1, 1},
                          {"20230229", 0, 0},
                          {"20240431", 0, 0},
                          {"20241301", 0, 0},
                          {"20240100", 0, 0},
                          {"2024+101", 0, 0},
                          {"2024 101", 0, 0},
                          {"20240132", 0, 0},
                          {"20240101T235960", 0, 0},
                          {"20240101T240000", 0, 0},
                          {"20240101T236000", 0, 0},
                          {"20240101T0-0000", 0, 0},
                          {"20240101X000000Z", 1, 0},
                          {"20240101T000000anything", 1, 0},
                          {nullptr, 0, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(cal_time_isValidDateOrDateTimeString(const_cast<char *>(c.s)), c.valid) << c.s;
        EXPECT_EQ(cal_time_isValidDateOnlyString(const_cast<char *>(c.s)), c.date_only) << c.s;
    }
    // Every prefix of a long string: only 8 and more than 14 characters pass.
    const std::string full = "20240101T101010Zabcd";
    for (size_t len = 0; len <= full.size(); ++len) {
        std::string s = full.substr(0, len);
        EXPECT_EQ(cal_time_isValidDateOrDateTimeString(s.data()), len == 8 || len > 14) << s;
    }
}

TEST(DateStrings, FieldHelpers) {
    EXPECT_EQ(checkNumberOfDaysHelper(2100, 2, 29), 0);  // no century rule
    EXPECT_EQ(checkNumberOfDaysHelper(2024, 13, 1), 1);
    struct Case {
        const char *s;
        int size, status, value;
    };
    const Case cases[] = {{"12", 3, 2, -7},          {"2147483647", 10, 0, INT_MAX},
                          {"2147483648", 10, 2, -7}, {"", 0, 0, 0},
                          {"-1", 2, 2, -7},          {"5", -1, 1, -7}};
    for (const auto &c : cases) {
        int out = -7;
        EXPECT_EQ(cal_time_atoi_size(const_cast<char *>(c.s), c.size, &out), c.status) << c.s;
        EXPECT_EQ(out, c.value) << c.s;
    }
    for (const auto &[s, m] : {std::pair<const char *, int>{"0", 1},
                               {"9", 1},
                               {" +4", 4},
                               {"-2", 1},
                               {"2x", 2},
                               {"99999999999999999999", 1},
                               {nullptr, 1}})
        EXPECT_EQ(cal_time_getModifier(s), m) << s;
    const std::pair<int, const char *> offsets[] = {
        {-330, "-0530"}, {0, "+0000"}, {60, "+0100"}, {INT_MIN, "-3579139408"}, {INT_MAX, "+3579139407"}};
    for (const auto &[minutes, want] : offsets) {
        char buf[CAL_TIME_TZOFFSET_SIZE];
        EXPECT_EQ(cal_time_minutes_to_tzOffsetString(minutes, buf), static_cast<int>(std::strlen(want)));
        EXPECT_STREQ(buf, want);
    }
}

TEST(DateStrings, ConversionPicksZoneByForm) {
    struct Case {
        const char *tz, *s;
        int force_utc, status;
        time_t t;
        int date_only;
    };
    const Case cases[] = {{UTC, "25000101T000000", 0, 0, k2500, 0},
                          {UTC, "20240229", 0, 0, k2024 + 59 * 86400, 1},
                          {UTC, "20240230", 0, 2, -1, 1},
                          {UTC, "202401011200", 0, 2, -1, 0},
                          {NY, "20240101T000000", 0, 0, k2024 + 5 * 3600, 0},
                          {NY, "20240101X000000Z", 0, 0, k2024, 0},
                          {NY, "20240101T000000ZZ", 0, 0, k2024 + 5 * 3600, 0},
                          {NY, "20240101T000000", 1, 0, k2024, 0},
                          // Summer time wall clocks are read as standard time.
                          {NY, "21000701T120000", 0, 0, k2100Jul + 5 * 3600, 0},
                          {NY, "20240101", 0, 0, k2024 + 5 * 3600, 1},
                          {LH, "20240101T000000", 0, 0, k2024 - 37800, 0}};
    for (const auto &c : cases) {
        orvtest::ScopedEnv tz("TZ", c.tz);
        time_t t = -1;
        int date_only = 7;
        EXPECT_EQ(cal_time_datez_to_timet_helper(const_cast<char *>(c.s), &t, &date_only, c.force_utc), c.status)
            << c.tz << " " << c.s;
        EXPECT_EQ(t, c.t) << c.tz << " " << c.s;
        EXPECT_EQ(date_only, c.date_only) << c.s;
    }
    EXPECT_EQ(cal_time_datez_to_timet(nullptr, nullptr, nullptr), 1);
}

TEST(DateStrings, FormattingMatchesReferenceOverAllYears) {
    const struct {
        Formatter f;
        bool local;
        const char *format;
    } formatters[] = {{cal_time_timet_to_date, true, "%Y%m%dT%H%M%S"},
                      {cal_time_timet_to_gmtdate, false, "%Y%m%dT%H%M%S"},
                      {cal_time_timet_to_datez, false, "%Y%m%dT%H%M%SZ"},
                      {cal_time_timet_to_dateAllDay, true, "%Y%m%d"},
                      {cal_time_timet_to_datezAllDay, false, "%Y%m%d"}};
    // Both ends of the range, each side of the 32-bit boundary, then a
    // sweep whose step drifts through times of day and seasons.
    std::vector<time_t> instants = {-62135596801, -62135596800,    -62135550000, INT32_MIN - 1LL, INT32_MIN,
                                    INT32_MAX,    INT32_MAX + 1LL, 253402250000, 253402300799,    253402300800};
    for (time_t t = -62135596800; t <= 253402300799; t += 20000003) instants.push_back(t);
    for (const char *zone : {UTC, NY, IN, LH, "Pacific/Kiritimati", "Pacific/Pago_Pago", "EST5EDT,M3.2.0,M11.1.0"}) {
        orvtest::ScopedEnv tz("TZ", zone);
        int mismatches = 0;
        for (time_t t : instants)
            for (const auto &f : formatters) {
                const std::string got = fmt(f.f, t), want = reference_format(t, f.local, f.format);
                if (got != want && ++mismatches <= 5)
                    ADD_FAILURE() << zone << " " << t << ": " << got << ", want " << want;
            }
        EXPECT_EQ(mismatches, 0) << zone;
    }
}

TEST(Durations, ParseAcceptsAndRejects) {
    const std::pair<const char *, duration> good[] = {{"P15DT5H0M20S", {0, 0, 15, 5, 0, 20, 0, 0}},
                                                      {"P7W", {0, 0, 0, 0, 0, 0, 7, 0}},
                                                      {"-P1D", {0, 0, 1, 0, 0, 0, 0, 1}},
                                                      {"+PT30M", {0, 0, 0, 0, 30, 0, 0, 0}},
                                                      {"P1DT", {0, 0, 1, 0, 0, 0, 0, 0}},
                                                      {"-PY", {0, 0, 0, 0, 0, 0, 0, 1}},
                                                      {"-PT", {0, 0, 0, 0, 0, 0, 0, 1}},
                                                      {"P2147483647D", {0, 0, INT_MAX, 0, 0, 0, 0, 0}}};
    for (const auto &[s, want] : good) {
        duration d{9, 9, 9, 9, 9, 9, 9, 9};
        EXPECT_EQ(cal_time_buf_to_duration(const_cast<char *>(s), &d), 0) << s;
        EXPECT_TRUE(same(d, want)) << s;
    }
    const char *bad[] = {"PT",    "P",    "",      "1D",    "XP1D",  "P1W2D", "P1D2W", "PT1W",         "P1H",
                         "P2D1Y", "P1Y2", "PT1H2", "P1Y1Y", "PT1HT", "P-1D",  "P 1D",  "P2147483648D", nullptr};
    for (const char *s : bad) {
        duration d{9, 9, 9, 9, 9, 9, 9, 0};
        EXPECT_EQ(cal_time_buf_to_duration(const_cast<char *>(s), &d), 2) << s;
        EXPECT_TRUE(same(d, duration{9, 9, 9, 9, 9, 9, 9, 2})) << s;
    }
    EXPECT_EQ(cal_time_buf_to_duration(const_cast<char *>("P1D"), nullptr), 1);
    // Every prefix: valid exactly when at least 3 long and ending on a designator.
    const std::string full = "-P1Y2M3DT4H5M6S";
    for (size_t len = 0; len <= full.size(); ++len) {
        std::string s = full.substr(0, len);
        duration d{};
        EXPECT_EQ(cal_time_buf_to_duration(s.data(), &d) == 0, len >= 3 && std::strchr("YMDTHS", s.back())) << s;
    }
}

TEST(Durations, WriterAndDifference) {
    const std::pair<duration, const char *> cases[] = {
        {{0, 0, 1, 2, 0, 0, 0, 0}, "P1DT2H"},
        {{0, 0, 0, 0, 0, 0, 2, 1}, "-P2W"},
        {{0, 0, 0, 0, 5, 0, 0, 0}, "PT5M"},
        {{}, "PT"},
        {{1, 2, 3, 4, 5, 6, 0, 1}, "-P1Y2M3DT4H5M6S"},
        {{0, 0, 0, 0, 0, 0, 0, 2}, "invalid duration"},
        {{INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, 0, 1},
         "-P-2147483648Y-2147483648M-2147483648DT-2147483648H-2147483648M-2147483648S"}};
    for (const auto &[d, want] : cases) {
        std::string s = text(d);
        EXPECT_EQ(s, want);
        duration back{};  // what the writer gives, the parser takes back
        EXPECT_TRUE(s.size() <= 2 || d.sign == 2 || d.years < 0 ||
                    (cal_time_buf_to_duration(s.data(), &back) == 0 && same(back, d)))
            << s;
    }
    struct Diff {
        time_t a, b;
        const char *want;
    };
    const Diff diffs[] = {{0, 90061, "P1DT1H1M1S"},
                          {90061, 0, "-P1DT1H1M1S"},
                          {5, 5, "-PT"},
                          {LLONG_MIN, LLONG_MAX, "P2147483647DT7H15S"},
                          {k2500, 0, "-P193579DT"}};
    for (const auto &c : diffs) {
        duration d{9, 9, 9, 9, 9, 9, 9, 9};
        EXPECT_EQ(cal_time_calculateDurationBetweenTimes(&d, c.a, c.b), 0);
        EXPECT_EQ(text(d), c.want);
    }
}

TEST(Durations, AddByLocalCalendar) {
    struct Case {
        const char *tz, *dur;
        time_t t;
        int status;
        time_t want;
    };
    const Case cases[] = {{UTC, "P1M", k2024 + 30 * 86400, 0, k2024 + 61 * 86400},  // 31 Jan + 1 month: 2 March
                          {UTC, "-P1W", k2024, 0, k2024 - 7 * 86400},
                          {UTC, "P1Y", k2100Jul, 0, k2100Jul + 365 * 86400},
                          {UTC, "P2147483647Y", k2024, 1, -5},
                          // mktime keeps the start's summer-time flag: a local day across a
                          // change still lasts 24 hours (clock 13:00 EDT, 11:30 +10:30).
                          {NY, "P1D", 1710003600, 0, 1710003600 + 86400},
                          {LH, "P1D", 1712365200, 0, 1712365200 + 86400}};
    for (const auto &c : cases) {
        orvtest::ScopedEnv tz("TZ", c.tz);
        duration d{};
        ASSERT_EQ(cal_time_buf_to_duration(const_cast<char *>(c.dur), &d), 0);
        time_t out = -5;
        EXPECT_EQ(cal_time_addDurationToTimeT(&d, c.t, &out), c.status) << c.dur;
        EXPECT_EQ(out, c.want) << c.tz << " " << c.dur;
    }
}

TEST(Durations, LogicalAdditionClampsMonthEnds) {
    orvtest::ScopedEnv tz("TZ", UTC);
    struct Case {
        const char *dur, *iso;
        int status;
        const char *want;
    };
    const Case cases[] = {{"P1Y", "20240229T100000", 0, "20250228T100000"},
                          {"P1M", "20240131T100000", 0, "20240229T100000"},
                          {"PT25H", "20240101T000000", 0, "20240102T010000"},
                          {"P13M", "20240131T000000", 0, "20250228T000000"},
                          {"-P2M", "20240131T000000", 0, "20231130T000000"},
                          {"P1M", "21000131T000000", 0, "21000228T000000"},
                          {"P1Y", "25000101T000000Z", 0, "25010101T000000"},
                          {"P1W", "20240101", 0, "20240108T000000"},
                          {"junk", "20240101T120000", 0, "20240101T120000"},
                          {"P1D", "2024010", 2, ""},
                          {"P99999Y", "20240101T000000", 2, ""},
                          {"P8000Y", "20240101T000000", 2, ""}};
    for (const auto &c : cases) {
        char out[CAL_TIME_DATE_SIZE] = "";
        char *outp = out;
        time_t t = -5;
        EXPECT_EQ(cal_addLogicalDurationToLocalISO(const_cast<char *>(c.dur), const_cast<char *>(c.iso), &t, &outp),
                  c.status)
            << c.dur << " " << c.iso;
        EXPECT_STREQ(out, c.want) << c.dur << " " << c.iso;
        if (c.status == 0) {
            EXPECT_EQ(fmt(cal_time_timet_to_gmtdate, t), c.want);
        }
    }
}

TEST(Periods, ParseAndValidity) {
    struct Case {
        const char *s;
        int status;
        time_t start = 0, end = 0;
        const char *dur = "";
        int valid = 0;
        time_t offset = 0;
    };
    const time_t ten = k2024 + 36000, eleven = k2024 + 39600;
    const Case cases[] = {{"20240101T100000Z/20240101T110000Z", 0, ten, eleven, "", 1, 3600},
                          {"20240101T100000Z/PT1H", 0, ten, 0, "PT1H", 1, 3600},
                          {"20240101T100000Z/-PT1H", 0, ten, 0, "-PT1H", 0, -3600},
                          {"20240101T100000Z/20240101T100000Z", 0, ten, ten, "", 1, 0},
                          {"20240101T110000Z/20240101T100000Z", 0, eleven, ten, "", 0, -3600},
                          {"junk/PT1H", 0, 0, 0, "PT1H", 1, 3600},
                          {"20240101/PT1H", 2},
                          {"20240101T100000Z/20240102", 2},
                          {"20240101T100000Z/", 2},
                          {"20240101T100000Z", 1},
                          {nullptr, 1}};
    orvtest::ScopedEnv tz("TZ", UTC);
    for (const auto &c : cases) {
        period p{-9, -9, nullptr};
        ASSERT_EQ(cal_time_buf_to_period(c.s, &p), c.status) << c.s;
        period *owned = cal_time_NewPeriod(c.s);
        EXPECT_EQ(owned == nullptr, c.s == nullptr);
        EXPECT_EQ(p.start, c.status ? -9 : c.start) << c.s;
        EXPECT_EQ(p.end, c.status ? -9 : c.end) << c.s;
        EXPECT_EQ(p.duration ? text(*p.duration) : "", c.dur) << c.s;
        EXPECT_EQ(cal_time_IsValidPeriod(&p), c.status ? 1 : c.valid) << c.s;
        EXPECT_EQ(cal_time_getOffset(owned), c.offset) << c.s;  // a failed parse leaves an all-zero period
        cal_time_DestroyPeriod(&owned);
        EXPECT_EQ(owned, nullptr);
        cal_time_FreeDuration(&p.duration);
    }
    EXPECT_EQ(cal_time_MightBePeriodString("20240101T100000/x"), 1);
    EXPECT_EQ(cal_time_MightBePeriodString("20240101/x"), 0);
}

TEST(Periods, SortAndSearchByStart) {
    using Cmp = int (*)(const void *, const void *);
    period a{30, 0, nullptr}, b{-10, 0, nullptr}, c{20, 0, nullptr};
    std::vector<period *> list = {&a, nullptr, &b, &c, nullptr};
    std::qsort(list.data(), list.size(), sizeof(period *), reinterpret_cast<Cmp>(cal_time_period_compare));
    EXPECT_EQ(list, (std::vector<period *>{nullptr, nullptr, &b, &c, &a}));
    list.erase(list.begin(), list.begin() + 2);
    for (auto [t, want] : {std::pair<time_t, period *>{-10, &b}, {20, &c}, {30, &a}, {0, nullptr}}) {
        void *hit = std::bsearch(&t, list.data(), list.size(), sizeof(period *),
                                 reinterpret_cast<Cmp>(cal_time_timet_period_compare));
        EXPECT_EQ(hit ? *static_cast<period **>(hit) : nullptr, want) << t;
    }
}

}  // namespace
