// Dates, durations and periods: ISO 8601 basic strings to and from time_t,
// duration text and arithmetic, and "start/end" periods.
#include "orvutil/cal_time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

#include <plstr.h>
#include <prmem.h>

#include "orv/ascii.hpp"
#include "orv/civil.hpp"
#include "orvutil/platform/sys.h"

extern "C" {
const int cal_time_DAYS_IN_MONTH[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const int cal_time_DAYS_IN_MONTH_LEAP[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
}

namespace {

// The instants whose UTC year has four digits: 0001-01-01T00:00:00Z and
// 9999-12-31T23:59:59Z. Outside them the strings would change length.
constexpr time_t kFirstInstant = -62135596800;
constexpr time_t kLastInstant = 253402300799;

// ---------------------------------------------------------------------------
// Formatting

// The broken-down fields a formatter writes.
struct Clock {
    int64_t year;
    int month, day, hour, minute, second;
};

// UTC straight from the day count: no C library call, no time zone lock.
Clock utc_clock(time_t t) {
    const int64_t days = orv::floor_div(t, 86400);
    const int second_of_day = static_cast<int>(t - days * 86400);
    Clock c;
    orv::civil_from_days(days, &c.year, &c.month, &c.day);
    c.hour = second_of_day / 3600;
    c.minute = second_of_day / 60 % 60;
    c.second = second_of_day % 60;
    return c;
}

// Local time with one look-up in the platform's 64-bit local time, summer
// time included in every year. An instant it cannot convert is written as
// UTC (offset 0) rather than failing.
Clock local_clock(time_t t) {
    struct tm tm;
    if (mtlocaltime(&t, &tm) == nullptr) return utc_clock(t);
    return {static_cast<int64_t>(tm.tm_year) + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
}

// "00" to "99", two characters each: one load per pair instead of a
// division.
constexpr auto kDigitPairs = [] {
    std::array<char, 200> pairs{};
    for (int i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// Writes value, 0 to 99, as two digits.
char *put2(char *out, int value) {
    std::memcpy(out, &kDigitPairs[2 * value], 2);
    return out + 2;
}

enum class Zone { local, utc };
enum class Form { date, date_time, date_time_z };

// "YYYYMMDD", then "THHMMSS" and "Z" as the form asks. Returns the
// character count, or 0 with an empty string when the year in that zone
// does not have four digits.
int format_time(time_t t, char *buf, Zone zone, Form form) {
    if (buf == nullptr) return 0;
    buf[0] = '\0';
    if (t < kFirstInstant || t > kLastInstant) return 0;
    const Clock c = zone == Zone::utc ? utc_clock(t) : local_clock(t);
    if (c.year < 1 || c.year > 9999) return 0;
    const int year = static_cast<int>(c.year);
    char *out = put2(put2(buf, year / 100), year % 100);
    out = put2(put2(out, c.month), c.day);
    if (form != Form::date) {
        *out++ = 'T';
        out = put2(put2(put2(out, c.hour), c.minute), c.second);
        if (form == Form::date_time_z) *out++ = 'Z';
    }
    *out = '\0';
    return static_cast<int>(out - buf);
}

// ---------------------------------------------------------------------------
// Date-time validation

// Reads exactly width characters as an unsigned decimal number into value:
// 0, or 2 (value untouched) for a non-digit or a number beyond INT_MAX. The
// string is read in place, never modified; a short string stops at its
// terminator, which is not a digit.
inline int read_digits(const char *s, int width, int &value) {
    int sum = 0;
    for (int i = 0; i < width; ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        if (!orv::ascii_isdigit(c)) return CAL_TIME_E_TEXT;
        const int digit = c - '0';
        if (sum > (INT_MAX - digit) / 10) return CAL_TIME_E_TEXT;
        sum = sum * 10 + digit;
    }
    value = sum;
    return 0;
}

inline bool exceeds_month(int year, int month, int day) {
    const int *lengths = (year & 3) == 0 ? cal_time_DAYS_IN_MONTH_LEAP : cal_time_DAYS_IN_MONTH;
    return month < 1 || month > 12 || day > lengths[month - 1];
}

struct DateFields {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// Reads and checks the fields of a date (8 characters) or date-time (more
// than 14; index 8 and everything after index 14 are not looked at).
// date_only is written whatever the outcome. True when the string is valid.
bool read_date_fields(const char *s, size_t len, DateFields &f, int &date_only) {
    int error = 0;
    auto field = [&](size_t at, int width, int &value) { error |= read_digits(s + at, width, value); };
    date_only = 0;
    if (len == 8) {
        field(0, 4, f.year);
        field(4, 2, f.month);
        field(6, 2, f.day);
        date_only = 1;
    } else if (len > 14) {
        field(0, 4, f.year);
        field(4, 2, f.month);
        field(6, 2, f.day);
        field(9, 2, f.hour);
        field(11, 2, f.minute);
        field(13, 2, f.second);
    }
    // Other lengths leave month at 0, which fails here.
    if (f.month < 1 || f.month > 12 || f.day < 1 || f.day > 31 || f.hour > 23 || f.minute > 59 || f.second > 59)
        error = 1;
    return error == 0 && !exceeds_month(f.year, f.month, f.day);
}

// The conversion behind every string-to-time_t entry point.
int convert_date(const char *s, time_t *t, int *isDateOnly, bool forceUtc) {
    if (s == nullptr || t == nullptr || isDateOnly == nullptr) return CAL_TIME_E_ARG;
    const size_t len = std::strlen(s);
    DateFields f;
    if (!read_date_fields(s, len, f, *isDateOnly)) return CAL_TIME_E_TEXT;
    struct tm tm {};
    tm.tm_year = f.year - 1900;
    tm.tm_mon = f.month - 1;
    tm.tm_mday = f.day;
    tm.tm_hour = f.hour;
    tm.tm_min = f.minute;
    tm.tm_sec = f.second;
    // Standard time on purpose: callers rely on a summer-time wall clock
    // being read as standard time.
    tm.tm_isdst = 0;
    *t = forceUtc || (len == 16 && s[15] == 'Z') ? mkgmtime(&tm) : mktime(&tm);
    return 0;
}

// ---------------------------------------------------------------------------
// Durations

// Reads one part of a duration, [begin, end): each designator present, in
// the given order, takes the digits before it; nothing may follow the last.
bool read_duration_part(const char *begin, const char *end, const char *designators, int *const fields[3]) {
    const char *cur = begin;
    for (int i = 0; i < 3; ++i) {
        const char *at = std::find(cur, end, designators[i]);
        if (at == end) continue;
        if (at - cur > INT_MAX) return false;
        if (read_digits(cur, static_cast<int>(at - cur), *fields[i]) != 0) return false;
        cur = at + 1;
    }
    return cur == end;
}

bool parse_duration(const char *s, duration &r) {
    if (s == nullptr) return false;
    const size_t len = std::strlen(s);
    if (len < 3) return false;
    const char *end = s + len;
    const char *p = s;
    if (*p == '-' || *p == '+') r.sign = *p++ == '-' ? 1 : 0;
    if (*p++ != 'P') return false;

    if (const char *w = std::strchr(s, 'W'); w != nullptr) {
        if (w != end - 1 || w - p > INT_MAX) return false;
        return read_digits(p, static_cast<int>(w - p), r.weeks) == 0;
    }
    const char *t = std::strchr(s, 'T');
    int *const date_fields[3] = {&r.years, &r.months, &r.days};
    if (!read_duration_part(p, t != nullptr ? t : end, "YMD", date_fields)) return false;
    int *const time_fields[3] = {&r.hours, &r.minutes, &r.seconds};
    return t == nullptr || read_duration_part(t + 1, end, "HMS", time_fields);
}

// "<value><designator>" for a non-zero value, nothing for zero.
char *put_field(char *out, int value, char designator) {
    if (value == 0) return out;
    out = std::to_chars(out, out + 11, value).ptr;
    *out++ = designator;
    return out;
}

// Adds amount to one broken-down time field; false when it would leave int.
bool add_field(int &field, long long amount) {
    const long long sum = field + amount;
    if (sum < INT_MIN || sum > INT_MAX) return false;
    field = static_cast<int>(sum);
    return true;
}

int month_digits(const char *iso) { return (iso[4] - '0') * 10 + (iso[5] - '0'); }

// The work state of a logical addition: the instant and its UTC digits.
class LogicalSum {
  public:
    explicit LogicalSum(time_t t) : t_(t) {}
    time_t instant() const { return t_; }
    const char *text() const { return text_; }
    int month() const { return month_digits(text_); }
    void seed(const char *iso) {
        const size_t n = strnlen(iso, CAL_TIME_DATE_SIZE - 1);
        std::memcpy(text_, iso, n);
        text_[n] = '\0';
    }
    // Reads the digits back as UTC.
    bool reread() {
        int date_only;
        return convert_date(text_, &t_, &date_only, true) == 0;
    }
    // Adds by the calendar and rewrites the digits.
    bool add(const duration &step) {
        duration d = step;
        time_t next;
        if (cal_time_addDurationToTimeT(&d, t_, &next) != 0) return false;
        return set(next);
    }
    bool add_day(bool backwards) {
        duration day{};
        day.days = 1;
        day.sign = backwards ? 1 : 0;
        return add(day);
    }
    bool set(time_t t) {
        t_ = t;
        return cal_time_timet_to_gmtdate(t_, text_) == CAL_TIME_DATE_SIZE - 1;
    }

  private:
    time_t t_;
    char text_[CAL_TIME_DATE_SIZE] = {};
};

// Longest walk, in days, back into the intended month after an overflow.
constexpr int kMaxDaySteps = 31;

}  // namespace

extern "C" {

// ---------------------------------------------------------------------------
// Date-time strings and conversions

int cal_time_timet_to_date(time_t t, char *buf) noexcept { return format_time(t, buf, Zone::local, Form::date_time); }

int cal_time_timet_to_gmtdate(time_t t, char *buf) noexcept { return format_time(t, buf, Zone::utc, Form::date_time); }

int cal_time_timet_to_datez(time_t t, char *buf) noexcept { return format_time(t, buf, Zone::utc, Form::date_time_z); }

int cal_time_timet_to_dateAllDay(time_t t, char *buf) noexcept { return format_time(t, buf, Zone::local, Form::date); }

int cal_time_timet_to_datezAllDay(time_t t, char *buf) noexcept { return format_time(t, buf, Zone::utc, Form::date); }

int cal_time_minutes_to_tzOffsetString(int minutes, char *buf) noexcept {
    if (buf == nullptr) return 0;
    // Widened so that INT_MIN has an absolute value.
    const long long magnitude = minutes < 0 ? -static_cast<long long>(minutes) : minutes;
    return std::snprintf(buf, CAL_TIME_TZOFFSET_SIZE, "%s%.2lld%.2lld", minutes < 0 ? "-" : "+", magnitude / 60,
                         magnitude % 60);
}

int cal_time_getModifier(const char *s) noexcept {
    if (s == nullptr) return 1;
    // atoi's reading (blanks, sign, digits) without its overflow.
    while (orv::ascii_isspace(static_cast<unsigned char>(*s))) ++s;
    bool negative = false;
    if (*s == '-' || *s == '+') negative = *s++ == '-';
    long long value = 0;
    for (; orv::ascii_isdigit(static_cast<unsigned char>(*s)) && value <= INT_MAX; ++s) value = value * 10 + (*s - '0');
    if (negative) value = -value;
    return value >= 1 && value <= 4 ? static_cast<int>(value) : 1;
}

int cal_time_atoi_size(char *s, int size, int *out) noexcept {
    if (s == nullptr || out == nullptr || size < 0) return CAL_TIME_E_ARG;
    return read_digits(s, size, *out);
}

int checkNumberOfDaysHelper(int year, int month, int day) noexcept { return exceeds_month(year, month, day) ? 1 : 0; }

int cal_time_isValidDateOrDateTimeString(char *s) noexcept {
    if (s == nullptr) return 0;
    DateFields fields;
    int date_only;
    return read_date_fields(s, std::strlen(s), fields, date_only) ? 1 : 0;
}

int cal_time_isValidDateOnlyString(char *s) noexcept {
    return cal_time_isValidDateOrDateTimeString(s) && std::strlen(s) == 8 ? 1 : 0;
}

int cal_time_datez_to_timet_helper(char *s, time_t *t, int *isDateOnly, int forceUtc) noexcept {
    return convert_date(s, t, isDateOnly, forceUtc != 0);
}

int cal_time_datez_to_timet(char *s, time_t *t, int *isDateOnly) noexcept {
    return convert_date(s, t, isDateOnly, false);
}

int cal_time_datez_to_gmt_timet(char *s, time_t *t, int *isDateOnly) noexcept {
    return convert_date(s, t, isDateOnly, true);
}

// ---------------------------------------------------------------------------
// Durations and date arithmetic

int cal_time_buf_to_duration(char *s, duration *d) noexcept {
    if (d == nullptr) return CAL_TIME_E_ARG;
    duration parsed{};
    if (!parse_duration(s, parsed)) {
        d->sign = 2;
        return CAL_TIME_E_TEXT;
    }
    *d = parsed;
    return 0;
}

void cal_time_duration_to_buf(duration *d, char *buf) noexcept {
    if (d == nullptr || buf == nullptr) return;
    if (d->sign == 2) {
        std::memcpy(buf, "invalid duration", sizeof "invalid duration");
        return;
    }
    // At most 2 + 6 * 12 + 1 characters: within CAL_TIME_DURATION_SIZE.
    char *out = buf;
    if (d->sign != 0) *out++ = '-';
    *out++ = 'P';
    if (d->weeks != 0) {
        out = put_field(out, d->weeks, 'W');
    } else {
        out = put_field(out, d->years, 'Y');
        out = put_field(out, d->months, 'M');
        out = put_field(out, d->days, 'D');
        *out++ = 'T';
        out = put_field(out, d->hours, 'H');
        out = put_field(out, d->minutes, 'M');
        out = put_field(out, d->seconds, 'S');
    }
    *out = '\0';
}

int cal_time_FreeDuration(duration **pd) noexcept {
    if (pd != nullptr && *pd != nullptr) {
        PR_Free(*pd);
        *pd = nullptr;
    }
    return 0;
}

int cal_time_addDurationToTimeT(duration *d, time_t t, time_t *out) noexcept {
    if (d == nullptr || out == nullptr) return CAL_TIME_E_ARG;
    struct tm tm;
    if (mtlocaltime(&t, &tm) == nullptr) return CAL_TIME_E_ARG;
    const long long k = d->sign == 0 ? 1 : -1;
    if (!add_field(tm.tm_sec, k * d->seconds) || !add_field(tm.tm_min, k * d->minutes) ||
        !add_field(tm.tm_hour, k * d->hours) || !add_field(tm.tm_mday, k * d->days) ||
        !add_field(tm.tm_mon, k * d->months) || !add_field(tm.tm_year, k * d->years) ||
        !add_field(tm.tm_mday, k * 7 * d->weeks))
        return CAL_TIME_E_ARG;
    *out = mktime(&tm);
    return 0;
}

int cal_time_calculateDurationBetweenTimes(duration *d, time_t a, time_t b) noexcept {
    if (d == nullptr) return CAL_TIME_E_ARG;
    // The magnitude in unsigned arithmetic: a - b may not fit time_t.
    const uint64_t diff = a >= b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b)
                                 : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
    *d = duration{};
    d->days = static_cast<int>(std::min<uint64_t>(diff / 86400, INT_MAX));
    d->hours = static_cast<int>(diff % 86400 / 3600);
    d->minutes = static_cast<int>(diff % 3600 / 60);
    d->seconds = static_cast<int>(diff % 60);
    d->sign = a < b ? 0 : 1;
    return 0;
}

int cal_addLogicalDurationToLocalISO(char *durationText, char *localIso, time_t *outT, char **outIso) noexcept {
    if (durationText == nullptr || localIso == nullptr || outT == nullptr || outIso == nullptr || *outIso == nullptr)
        return CAL_TIME_E_ARG;
    time_t start;
    int date_only;
    if (convert_date(localIso, &start, &date_only, true) != 0) return CAL_TIME_E_TEXT;
    LogicalSum sum(start);
    sum.seed(localIso);

    // An unparsable duration is all zero with sign 2: it adds nothing.
    duration d{};
    cal_time_buf_to_duration(durationText, &d);
    const int sign = d.sign == 0 ? 0 : 1;

    // Whole years first; 29 February walks back to 28 February.
    const long long years = static_cast<long long>(d.years) + d.months / 12;
    if (years > 9999) return CAL_TIME_E_TEXT;
    if (years != 0) {
        duration step{};
        step.years = static_cast<int>(years);
        step.sign = sign;
        if (!sum.add(step)) return CAL_TIME_E_TEXT;
        if (month_digits(localIso) == 2)
            for (int i = 0; sum.month() != 2; ++i)
                if (i == kMaxDaySteps || !sum.add_day(true)) return CAL_TIME_E_TEXT;
    }

    // The months left over; a day past the target month's end walks back.
    const int rest = d.months % 12;
    if (rest != 0) {
        const int m0 = sum.month();
        if (!sum.reread()) return CAL_TIME_E_TEXT;
        duration step{};
        step.months = rest;
        step.sign = sign;
        if (!sum.add(step)) return CAL_TIME_E_TEXT;
        int expected;
        if (sign == 0)
            expected = m0 + rest >= 13 ? m0 + rest - 12 : m0 + rest;
        else
            expected = m0 > rest ? m0 - rest : m0 - rest + 12;
        for (int i = 0; sum.month() != expected; ++i)
            if (i == kMaxDaySteps || !sum.add_day(expected < sum.month())) return CAL_TIME_E_TEXT;
    }

    // Weeks, days and time as plain seconds (at most about 2^50: no overflow).
    const long long seconds = ((7LL * d.weeks + d.days) * 24 + d.hours) * 3600 + 60LL * d.minutes + d.seconds;
    if (!sum.set(sum.instant() + (sign == 0 ? seconds : -seconds))) return CAL_TIME_E_TEXT;
    *outT = sum.instant();
    std::memcpy(*outIso, sum.text(), CAL_TIME_DATE_SIZE);
    return 0;
}

// ---------------------------------------------------------------------------
// Periods

int cal_time_buf_to_period(const char *s, period *p) noexcept {
    if (p == nullptr || s == nullptr) return CAL_TIME_E_ARG;
    const char *slash = std::strchr(s, '/');
    if (slash == nullptr) return CAL_TIME_E_ARG;
    if (static_cast<size_t>(slash - s) > UINT32_MAX) return CAL_TIME_E_TEXT;

    struct Copy {
        char *text;
        ~Copy() { PL_strfree(text); }
    };
    const Copy start_text{PL_strndup(s, static_cast<PRUint32>(slash - s))};
    const Copy end_text{PL_strdup(slash + 1)};
    if (start_text.text == nullptr || end_text.text == nullptr) return CAL_TIME_E_NOMEM;

    // An invalid start is kept as 0 on purpose; only a date-only one fails.
    time_t start = 0;
    int date_only = 0;
    if (cal_time_datez_to_timet(start_text.text, &start, &date_only) == CAL_TIME_E_ARG || date_only)
        return CAL_TIME_E_TEXT;

    time_t end = 0;
    duration *length = nullptr;
    if (cal_time_datez_to_timet(end_text.text, &end, &date_only) != 0 || date_only) {
        end = 0;
        length = static_cast<duration *>(PR_Calloc(1, sizeof(duration)));
        if (length == nullptr) return CAL_TIME_E_NOMEM;
        if (cal_time_buf_to_duration(end_text.text, length) != 0) {
            PR_Free(length);
            return CAL_TIME_E_TEXT;
        }
    }
    p->start = start;
    p->end = end;
    p->duration = length;
    return 0;
}

period *cal_time_NewPeriod(const char *s) noexcept {
    if (s == nullptr) return nullptr;
    auto *p = static_cast<period *>(PR_Calloc(1, sizeof(period)));
    if (p != nullptr) cal_time_buf_to_period(s, p);
    return p;
}

int cal_time_DestroyPeriod(period **pp) noexcept {
    if (pp != nullptr && *pp != nullptr) {
        cal_time_FreeDuration(&(*pp)->duration);
        PR_Free(*pp);
        *pp = nullptr;
    }
    return 0;
}

int cal_time_IsValidPeriod(period *p) noexcept {
    if (p == nullptr) return 0;
    if (p->end == 0) return p->duration != nullptr && p->duration->sign == 0 ? 1 : 0;
    return p->start > p->end ? 0 : 1;
}

int cal_time_MightBePeriodString(const char *s) noexcept {
    if (s == nullptr) return 0;
    const char *slash = std::strchr(s, '/');
    return slash != nullptr && slash - s > 14 ? 1 : 0;
}

int cal_time_period_compare(period **a, period **b) noexcept {
    const period *pa = a != nullptr ? *a : nullptr;
    const period *pb = b != nullptr ? *b : nullptr;
    if (pa == nullptr || pb == nullptr) return (pa != nullptr) - (pb != nullptr);
    return (pa->start > pb->start) - (pa->start < pb->start);
}

int cal_time_timet_period_compare(time_t *t, period **p) noexcept {
    const period *pp = p != nullptr ? *p : nullptr;
    if (pp == nullptr) return 1;
    if (t == nullptr) return -1;
    return (*t > pp->start) - (*t < pp->start);
}

time_t cal_time_getOffset(period *p) noexcept {
    if (p == nullptr) return 0;
    if (p->duration == nullptr) {
        time_t length;
        if (__builtin_sub_overflow(p->end, p->start, &length))
            return p->end > p->start ? std::numeric_limits<time_t>::max() : std::numeric_limits<time_t>::min();
        return length;
    }
    time_t length = 0;
    return cal_time_addDurationToTimeT(p->duration, 0, &length) == 0 ? length : 0;
}

}  // extern "C"
