// orvadmin commands on dates, durations and periods.
#include <cstring>

#include "orvadmin.hpp"
#include "orvutil/cal_time.h"

namespace orvadmin {
namespace {

long long ll(time_t t) { return static_cast<long long>(t); }

// "NAME = INSTANT TEXT" with the instant written in UTC ('Z') or local form.
void print_instant(const char *name, time_t t, bool utc, bool dateOnly) {
    char text[CAL_TIME_DATEZ_SIZE] = "";
    if (dateOnly)
        utc ? cal_time_timet_to_datezAllDay(t, text) : cal_time_timet_to_dateAllDay(t, text);
    else
        utc ? cal_time_timet_to_datez(t, text) : cal_time_timet_to_date(t, text);
    out("%s = %lld %s\n", name, ll(t), text);
}

}  // namespace

int cmd_when(int, char **argv) {
    // Only a lone 'Z' after the 15 characters of a date-time is read.
    const size_t len = std::strlen(argv[1]);
    if (len > 15 && !(len == 16 && argv[1][15] == 'Z'))
        note(argv[0], "the text after the 15th character is ignored: %s", argv[1] + 15);
    time_t utc = 0, local = 0;
    int dateOnly = 0;
    if (!cal_time_isValidDateOrDateTimeString(argv[1]) || cal_time_datez_to_gmt_timet(argv[1], &utc, &dateOnly) != 0 ||
        cal_time_datez_to_timet(argv[1], &local, &dateOnly) != 0)
        return fail(argv[0], "invalid date or date-time: %s", argv[1]);
    out("kind = %s\n", dateOnly ? "date" : "date-time");
    print_instant("utc", utc, true, dateOnly != 0);
    print_instant("local", local, false, dateOnly != 0);
    return 0;
}

int cmd_dur(int, char **argv) {
    duration d{};
    if (cal_time_buf_to_duration(argv[1], &d) != 0) return fail(argv[0], "invalid duration: %s", argv[1]);
    char text[CAL_TIME_DURATION_SIZE];
    cal_time_duration_to_buf(&d, text);
    out("duration = %s\n", text);
    return 0;
}

int cmd_add(int, char **argv) {
    duration d{};
    if (cal_time_buf_to_duration(argv[1], &d) != 0) return fail(argv[0], "invalid duration: %s", argv[1]);
    if (std::strlen(argv[2]) == 16 && argv[2][15] == 'Z')
        note(argv[0], "the 'Z' is ignored: the duration is added to the time as a floating local time");
    char result[CAL_TIME_DATE_SIZE];
    char *resultp = result;
    time_t t = 0;
    if (cal_addLogicalDurationToLocalISO(argv[1], argv[2], &t, &resultp) != 0)
        return fail(argv[0], "invalid date-time or result out of range: %s", argv[2]);
    out("result = %s\n", result);
    return 0;
}

int cmd_period(int, char **argv) {
    period p{};
    int r = cal_time_buf_to_period(argv[1], &p);
    if (r != 0) return fail(argv[0], r == 3 ? "out of memory" : "invalid period: %s", argv[1]);
    print_instant("start", p.start, true, false);
    if (p.duration) {
        char text[CAL_TIME_DURATION_SIZE];
        cal_time_duration_to_buf(p.duration, text);
        out("duration = %s\n", text);
    } else {
        print_instant("end", p.end, true, false);
    }
    int valid = cal_time_IsValidPeriod(&p);
    out("valid = %s\n", valid ? "yes" : "no");
    cal_time_FreeDuration(&p.duration);
    return valid ? 0 : fail(argv[0], "not a valid period: %s", argv[1]);
}

}  // namespace orvadmin
