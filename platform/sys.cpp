// Small process services: ids, file sync, time conversion, sleep.
#include "orvutil/platform/sys.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

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
    const time_t result = static_cast<time_t>(seconds);
    struct tm normal;
    if (gmtime_r(&result, &normal) == nullptr) return static_cast<time_t>(-1);
    normal.tm_isdst = 0;
    *tm = normal;
    return result;
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
