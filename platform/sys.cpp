// Small process services: ids, file sync, time conversion, sleep.
#include "orvutil/platform/sys.h"

#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

#include "orv/civil.hpp"
#include "orvutil/platform/zolog.h"

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
    int64_t year = static_cast<int64_t>(tm->tm_year) + 1900 + orv::floor_div(month, 12);
    month -= orv::floor_div(month, 12) * 12;
    int64_t seconds = orv::days_from_civil(year, month + 1, 1) * 86400;
    seconds += (static_cast<int64_t>(tm->tm_mday) - 1) * 86400;
    seconds += static_cast<int64_t>(tm->tm_hour) * 3600;
    seconds += static_cast<int64_t>(tm->tm_min) * 60;
    seconds += tm->tm_sec;
    // Write the normalised fields back, as mktime does, straight from the
    // day count (no second conversion through gmtime).
    const int64_t days = orv::floor_div(seconds, 86400);
    const int64_t second_of_day = seconds - days * 86400;
    int64_t y;
    int m, d;
    orv::civil_from_days(days, &y, &m, &d);
    if (y - 1900 < INT_MIN || y - 1900 > INT_MAX) return static_cast<time_t>(-1);
    tm->tm_year = static_cast<int>(y - 1900);
    tm->tm_mon = m - 1;
    tm->tm_mday = d;
    tm->tm_hour = static_cast<int>(second_of_day / 3600);
    tm->tm_min = static_cast<int>(second_of_day / 60 % 60);
    tm->tm_sec = static_cast<int>(second_of_day % 60);
    tm->tm_wday = static_cast<int>(orv::floor_div(days + 4, 7) * -7 + days + 4);  // 1970-01-01 was a Thursday
    tm->tm_yday = static_cast<int>(days - orv::days_from_civil(y, 1, 1));
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
