// Date-time parsing and formatting and duration text against libical and
// glibc (strptime + timegm, gmtime_r or localtime_r + strftime). Local time
// is New York's, so that the zone has summer time.
#include <benchmark/benchmark.h>

#include <libical/ical.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "orvutil/cal_time.h"

namespace {

char kDateTime[] = "20240315T123456Z";
char kDuration[] = "P15DT5H0M20S";
constexpr time_t kInstant = 1710506096;  // 2024-03-15T12:34:56Z

void BM_parse_orv(benchmark::State &state) {
    for (auto _ : state) {
        time_t t;
        int date_only;
        cal_time_datez_to_timet(kDateTime, &t, &date_only);
        benchmark::DoNotOptimize(t);
    }
}

void BM_parse_libical(benchmark::State &state) {
    for (auto _ : state) {
        const time_t t = icaltime_as_timet(icaltime_from_string(kDateTime));
        benchmark::DoNotOptimize(t);
    }
}

void BM_parse_glibc(benchmark::State &state) {
    for (auto _ : state) {
        struct tm tm {};
        strptime(kDateTime, "%Y%m%dT%H%M%SZ", &tm);
        const time_t t = timegm(&tm);
        benchmark::DoNotOptimize(t);
    }
}

// One of our formatters, called through a pointer as the glibc pair is.
void format_orv(benchmark::State &state, int (*format)(time_t, char *)) {
    char buf[CAL_TIME_DATEZ_SIZE];
    for (auto _ : state) {
        format(kInstant, buf);
        benchmark::DoNotOptimize(buf);
    }
}

void format_glibc(benchmark::State &state, struct tm *(*convert)(const time_t *, struct tm *), const char *format) {
    char buf[CAL_TIME_DATEZ_SIZE];
    for (auto _ : state) {
        struct tm tm;
        convert(&kInstant, &tm);
        strftime(buf, sizeof buf, format, &tm);
        benchmark::DoNotOptimize(buf);
    }
}

void BM_format_orv(benchmark::State &state) { format_orv(state, cal_time_timet_to_datez); }
void BM_format_strftime(benchmark::State &state) { format_glibc(state, gmtime_r, "%Y%m%dT%H%M%SZ"); }
void BM_format_local_orv(benchmark::State &state) { format_orv(state, cal_time_timet_to_date); }
void BM_format_local_strftime(benchmark::State &state) { format_glibc(state, localtime_r, "%Y%m%dT%H%M%S"); }

void BM_format_libical(benchmark::State &state) {
    icaltimezone *utc = icaltimezone_get_utc_timezone();
    for (auto _ : state) {
        const char *s = icaltime_as_ical_string(icaltime_from_timet_with_zone(kInstant, 0, utc));
        benchmark::DoNotOptimize(s);
    }
}

void BM_duration_orv(benchmark::State &state) {
    char buf[CAL_TIME_DURATION_SIZE];
    for (auto _ : state) {
        duration d;
        cal_time_buf_to_duration(kDuration, &d);
        cal_time_duration_to_buf(&d, buf);
        benchmark::DoNotOptimize(buf);
    }
}

void BM_duration_libical(benchmark::State &state) {
    for (auto _ : state) {
        const char *s = icaldurationtype_as_ical_string(icaldurationtype_from_string(kDuration));
        benchmark::DoNotOptimize(s);
    }
}

}  // namespace

BENCHMARK(BM_parse_orv);
BENCHMARK(BM_parse_libical);
BENCHMARK(BM_parse_glibc);
BENCHMARK(BM_format_orv);
BENCHMARK(BM_format_libical);
BENCHMARK(BM_format_strftime);
BENCHMARK(BM_format_local_orv);
BENCHMARK(BM_format_local_strftime);
BENCHMARK(BM_duration_orv);
BENCHMARK(BM_duration_libical);

int main(int argc, char **argv) {
    setenv("TZ", "America/New_York", 1);
    tzset();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
