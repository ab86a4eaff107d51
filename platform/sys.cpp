// Small process services: ids, file sync, time conversion, sleep.
#include "orvutil/platform/sys.h"

#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

#include "orvutil/platform/zolog.h"

namespace {

// Days from 1970-01-01 to the given proleptic Gregorian date (any year).
int64_t days_from_civil(int64_t y, int64_t m, int64_t d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

int64_t floor_div(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// The proleptic Gregorian date of a day count from 1970-01-01.
void civil_from_days(int64_t z, int64_t *y, int *m, int *d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    *d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    *m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    *y = yoe + era * 400 + (*m <= 2);
}

}  // namespace

extern "C" {

unsigned long thread_id(void) noexcept { return static_cast<unsigned long>(syscall(SYS_gettid)); }

int process_id(void) noexcept { return static_cast<int>(getpid()); }

int sync_file(int fd, int flag) noexcept { return flag ? fsync(fd) : fdatasync(fd); }

struct tm *mtlocaltime(const time_t *t, struct tm *result) noexcept {
    if (t == nullptr || result == nullptr) return nullptr;
    return localtime_r(t, result);
}

time_t mkgmtime(struct tm *tm) noexcept {
    if (tm == nullptr) return static_cast<time_t>(-1);
    // Normalise month into the year first, then let days absorb the rest.
    int64_t month = tm->tm_mon;
    int64_t year = static_cast<int64_t>(tm->tm_year) + 1900 + floor_div(month, 12);
    month -= floor_div(month, 12) * 12;
    int64_t seconds = days_from_civil(year, month + 1, 1) * 86400;
    seconds += (static_cast<int64_t>(tm->tm_mday) - 1) * 86400;
    seconds += static_cast<int64_t>(tm->tm_hour) * 3600;
    seconds += static_cast<int64_t>(tm->tm_min) * 60;
    seconds += tm->tm_sec;
    // Write the normalised fields back, as mktime does, straight from the
    // day count (no second conversion through gmtime).
    const int64_t days = floor_div(seconds, 86400);
    const int64_t second_of_day = seconds - days * 86400;
    int64_t y;
    int m, d;
    civil_from_days(days, &y, &m, &d);
    if (y - 1900 < INT_MIN || y - 1900 > INT_MAX) return static_cast<time_t>(-1);
    tm->tm_year = static_cast<int>(y - 1900);
    tm->tm_mon = m - 1;
    tm->tm_mday = d;
    tm->tm_hour = static_cast<int>(second_of_day / 3600);
    tm->tm_min = static_cast<int>(second_of_day / 60 % 60);
    tm->tm_sec = static_cast<int>(second_of_day % 60);
    tm->tm_wday = static_cast<int>(floor_div(days + 4, 7) * -7 + days + 4);  // 1970-01-01 was a Thursday
    tm->tm_yday = static_cast<int>(days - days_from_civil(y, 1, 1));
    tm->tm_isdst = 0;
    tm->tm_gmtoff = 0;
    tm->tm_zone = "GMT";
    return static_cast<time_t>(seconds);
}

void service_exit(int status) noexcept {
    (void)status;
    zolog_flush();
}

void sleep_seconds(unsigned int seconds) noexcept {
    struct timespec left = {static_cast<time_t>(seconds), 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // extern "C"
