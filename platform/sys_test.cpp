#include <gtest/gtest.h>

#include <pthread.h>
#include <chrono>
#include <climits>
#include <csignal>
#include <ctime>
#include <thread>
#include <tuple>

#include "orvutil/platform/sys.h"

namespace {

TEST(Sys, MkgmtimeWritesBackWhatGmtimeWouldGive) {
    // Denormal inputs (seconds only) across four centuries and both signs:
    // every field, weekday and day of the year included, matches gmtime.
    for (int64_t t = -12219292800LL; t < 16725225600LL; t += 7654321) {
        struct tm in = {};
        in.tm_year = 70;
        in.tm_mday = 1;
        in.tm_min = static_cast<int>(t / 60);
        in.tm_sec = static_cast<int>(t % 60);
        const time_t got = mkgmtime(&in);
        ASSERT_EQ(got, static_cast<time_t>(t));
        struct tm want;
        gmtime_r(&got, &want);
        ASSERT_EQ(std::make_tuple(in.tm_year, in.tm_mon, in.tm_mday, in.tm_hour, in.tm_min, in.tm_sec, in.tm_wday,
                                  in.tm_yday, in.tm_isdst),
                  std::make_tuple(want.tm_year, want.tm_mon, want.tm_mday, want.tm_hour, want.tm_min, want.tm_sec,
                                  want.tm_wday, want.tm_yday, want.tm_isdst))
            << t;
    }
    struct tm huge = {};
    huge.tm_year = INT_MAX;
    huge.tm_mon = 24;
    EXPECT_EQ(mkgmtime(&huge), static_cast<time_t>(-1));
}

TEST(Sys, MkgmtimeNormalisesFieldsLikeMktime) {
    // year, month (0-based), day, hour: what they normalise to
    const std::tuple<int, int, int, int, const char *> cases[] = {
        {2024, 12, 1, 0, "2025-01-01 00"},   // month 13
        {2100, 1, 29, 0, "2100-03-01 00"},   // 2100 is not leap
        {2000, -1, 1, 48, "1999-12-03 00"},  // negative month, hours overflow
    };
    for (const auto &[year, mon, mday, hour, expect] : cases) {
        struct tm tm = {};
        std::tie(tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour) = std::make_tuple(year - 1900, mon, mday, hour);
        const time_t t = mkgmtime(&tm);
        char buf[32];
        strftime(buf, sizeof buf, "%Y-%m-%d %H", gmtime_r(&t, &tm));
        EXPECT_STREQ(buf, expect);
    }
    EXPECT_EQ(mkgmtime(nullptr), static_cast<time_t>(-1));
}

void on_alarm(int) {}

TEST(Sys, SleepFinishesItsTimeWhenInterrupted) {
    struct sigaction sa = {};
    sa.sa_handler = on_alarm;
    sigaction(SIGALRM, &sa, nullptr);
    pthread_t self = pthread_self();
    std::thread interrupter([self] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        pthread_kill(self, SIGALRM);
    });
    const auto start = std::chrono::steady_clock::now();
    sleep_seconds(1);
    const auto slept = std::chrono::steady_clock::now() - start;
    interrupter.join();
    EXPECT_GE(slept, std::chrono::milliseconds(990));
    signal(SIGALRM, SIG_DFL);
}

}  // namespace
