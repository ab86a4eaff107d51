/*
 * Dates, durations and periods.
 *
 * Instants are time_t values (64-bit seconds since 1970-01-01T00:00:00Z).
 * They are exchanged as ISO 8601 basic strings: a date-time is
 * "YYYYMMDDTHHMMSS" with an optional trailing 'Z', a date is "YYYYMMDD".
 *
 * Status codes of the family: CAL_TIME_OK (0) success, CAL_TIME_E_ARG (1)
 * bad argument, CAL_TIME_E_TEXT (2) invalid text, CAL_TIME_E_NOMEM (3) out
 * of memory.
 *
 * Nothing here allocates a string: the caller owns every output buffer and
 * passes one at least as large as the size named for it below. Heap
 * durations and periods are allocated with PR_Calloc and released with
 * cal_time_FreeDuration and cal_time_DestroyPeriod.
 *
 * Threads: the functions keep no state of their own; local-time work reads
 * the process time zone (TZ), which must not change while they run.
 */
#ifndef ORVUTIL_CAL_TIME_H
#define ORVUTIL_CAL_TIME_H

#include <time.h>

#include "orv_defs.h"

ORV_BEGIN_DECLS

#define CAL_TIME_OK      0
#define CAL_TIME_E_ARG   1
#define CAL_TIME_E_TEXT  2
#define CAL_TIME_E_NOMEM 3

/* ---------------------------------------------------------------------
 * Date-time strings and conversions
 * --------------------------------------------------------------------- */

/* Buffer sizes, terminator included. */
#define CAL_TIME_DATE_SIZE     16 /* "YYYYMMDDTHHMMSS" */
#define CAL_TIME_DATEZ_SIZE    17 /* "YYYYMMDDTHHMMSSZ" */
#define CAL_TIME_ALLDAY_SIZE   9  /* "YYYYMMDD" */
#define CAL_TIME_TZOFFSET_SIZE 12 /* any int minutes: "-3579139408" */

/* Month lengths indexed by month - 1, common and leap years. */
ORV_API extern const int cal_time_DAYS_IN_MONTH[12];
ORV_API extern const int cal_time_DAYS_IN_MONTH_LEAP[12];

/*
 * Formatters. Each writes the instant in the named zone and form and returns
 * the number of characters written (without the terminator):
 *
 *   cal_time_timet_to_date        local  "YYYYMMDDTHHMMSS"   16-byte buffer
 *   cal_time_timet_to_gmtdate     UTC    "YYYYMMDDTHHMMSS"   16-byte buffer
 *   cal_time_timet_to_datez       UTC    "YYYYMMDDTHHMMSSZ"  17-byte buffer
 *   cal_time_timet_to_dateAllDay  local  "YYYYMMDD"           9-byte buffer
 *   cal_time_timet_to_datezAllDay UTC    "YYYYMMDD"           9-byte buffer
 *
 * cal_time_timet_to_gmtdate carries no 'Z' although its digits are UTC.
 *
 * Range: years 0001 to 9999 in the zone written (UTC instants from
 * -62135596800 to 253402300799). An instant outside it, or whose year in
 * that zone falls outside it, writes an empty string and returns 0; a NULL
 * buffer returns 0. Local time comes from the process time zone, summer
 * time included, for every year of the range.
 */
ORV_API int cal_time_timet_to_date(time_t t, char *buf) ORV_NOEXCEPT;
ORV_API int cal_time_timet_to_gmtdate(time_t t, char *buf) ORV_NOEXCEPT;
ORV_API int cal_time_timet_to_datez(time_t t, char *buf) ORV_NOEXCEPT;
ORV_API int cal_time_timet_to_dateAllDay(time_t t, char *buf) ORV_NOEXCEPT;
ORV_API int cal_time_timet_to_datezAllDay(time_t t, char *buf) ORV_NOEXCEPT;

/* Writes a UTC offset in minutes as sign and hours and minutes of two digits
 * each: -330 gives "-0530", 0 gives "+0000". Returns the character count
 * (0 with a NULL buffer). Offsets below 100 hours need 6 bytes; any int
 * fits CAL_TIME_TZOFFSET_SIZE (hours then take more than two digits). */
ORV_API int cal_time_minutes_to_tzOffsetString(int minutes, char *buf) ORV_NOEXCEPT;

/* The decimal value of s (leading blanks and a sign allowed, as atoi reads
 * it) when it lies in 1..4; 1 for NULL and for any other value, numbers too
 * large for an int included. */
ORV_API int cal_time_getModifier(const char *s) ORV_NOEXCEPT;

/* Reads exactly size characters of s as an unsigned decimal number.
 * 0 with the value in *out; 2 when one of them is not '0'..'9' or the value
 * exceeds INT_MAX (such numbers are rejected, never clamped); 1 when s or
 * out is NULL or size is negative. *out is written only on success; size 0
 * gives 0. s is only read: it need not be writable and nothing past
 * s[size - 1] is looked at. */
ORV_API int cal_time_atoi_size(char *s, int size, int *out) ORV_NOEXCEPT;

/* 1 when day exceeds the month's length, else 0. Every year divisible by 4
 * is a leap year, 1900 and 2100 included (the century rule is not applied).
 * A month outside 1..12 returns 1. */
ORV_API int checkNumberOfDaysHelper(int year, int month, int day) ORV_NOEXCEPT;

/*
 * Validation. A string of exactly 8 characters is read as YYYYMMDD; one of
 * more than 14 as YYYYMMDD?HHMMSS, where the character at index 8 is not
 * looked at and nothing after index 14 is either; every other length is
 * invalid. Fields are digits only; month 1..12, day 1..month length,
 * hour 0..23, minute and second 0..59 (60 is rejected).
 */
/* 1 when s is a valid date or date-time, else 0 (0 for NULL). */
ORV_API int cal_time_isValidDateOrDateTimeString(char *s) ORV_NOEXCEPT;
/* 1 when s is a valid date of exactly 8 characters, else 0. */
ORV_API int cal_time_isValidDateOnlyString(char *s) ORV_NOEXCEPT;

/*
 * Conversion to time_t. *isDateOnly is set to 1 for an 8-character string
 * and to 0 otherwise, even when the string is invalid. On success *t is
 * written and 0 returned; an invalid string returns 2 with *t untouched;
 * a NULL argument returns 1 with nothing written.
 *
 * The fields are read as UTC when forceUtc is non-zero or when the string
 * is exactly 16 characters with 'Z' at index 15; otherwise they are read as
 * local time by mktime with tm_isdst = 0, so a wall-clock time inside summer
 * time is taken as standard time (it comes out one summer-time step later).
 * An instant mktime cannot represent is stored as -1 with status 0.
 */
ORV_API int cal_time_datez_to_timet(char *s, time_t *t, int *isDateOnly) ORV_NOEXCEPT;
ORV_API int cal_time_datez_to_gmt_timet(char *s, time_t *t, int *isDateOnly) ORV_NOEXCEPT;
ORV_API int cal_time_datez_to_timet_helper(char *s, time_t *t, int *isDateOnly, int forceUtc) ORV_NOEXCEPT;

/* ---------------------------------------------------------------------
 * Durations and date arithmetic
 * --------------------------------------------------------------------- */

/* A duration. Counts are non-negative; the sign lives in sign alone. When
 * weeks is non-zero the six fields before it are 0. */
typedef struct duration {
    int years;
    int months;
    int days;
    int hours;
    int minutes;
    int seconds;
    int weeks;
    int sign; /* 0 positive, 1 negative, 2 invalid (a failed parse) */
} duration;

/* Enough for every duration the writer can produce, whatever its fields
 * hold (eight signed ints), terminator included. */
#define CAL_TIME_DURATION_SIZE 80

/*
 * Parses "P[nY][nM][nD][T[nH][nM][nS]]" or "PnW", optionally preceded by
 * '-' or '+'. Each number is digits only and may be empty (read as 0:
 * "-PY" is valid); designators keep the order shown and nothing may follow
 * the last one of each part; an empty time part is allowed ("P1DT").
 * Strings shorter than 3 characters are rejected, "PT" included.
 * Numbers above INT_MAX are rejected.
 *
 * 0 on success with every field written; 1 when d is NULL; 2 otherwise,
 * with d->sign = 2 and the other fields left as they were.
 */
ORV_API int cal_time_buf_to_duration(char *s, duration *d) ORV_NOEXCEPT;

/* Writes the text form into buf (CAL_TIME_DURATION_SIZE bytes always
 * suffice): "invalid duration" for sign 2, "-P2W" for weeks, otherwise
 * "P" with each non-zero field and a "T" that is always written ("P1DT",
 * "PT" for zero, "PT2H"). Any other non-zero sign writes '-'. Does nothing
 * when d or buf is NULL. */
ORV_API void cal_time_duration_to_buf(duration *d, char *buf) ORV_NOEXCEPT;

/* Frees *pd (PR_Free) and sets it to NULL; NULL pd or *pd is ignored.
 * Returns 0. */
ORV_API int cal_time_FreeDuration(duration **pd) ORV_NOEXCEPT;

/* Adds d to t by the calendar in local time: the fields (weeks as 7 days)
 * are added to t's local broken-down time, which mktime then normalises,
 * keeping the summer-time flag of t. Month overflow is left to mktime
 * (31 January + 1 month gives 2 or 3 March). Any sign other than 0 (the
 * invalid 2 too) subtracts. Returns 0 with *out written; 1 when d or out is
 * NULL, t cannot be broken down, or a field would overflow an int; then
 * *out is untouched. */
ORV_API int cal_time_addDurationToTimeT(duration *d, time_t t, time_t *out) ORV_NOEXCEPT;

/* Fills *d with |a - b| as days, hours, minutes and seconds (years, months
 * and weeks 0). sign is 0 when a < b and 1 otherwise, so equal instants give
 * a negative zero ("-PT"). Days beyond INT_MAX are clamped to INT_MAX.
 * Returns 0, or 1 when d is NULL. */
ORV_API int cal_time_calculateDurationBetweenTimes(duration *d, time_t a, time_t b) ORV_NOEXCEPT;

/*
 * Adds durationText to the floating date-time localIso by the calendar:
 * years first (29 February lands on 28 February), then the months left over
 * (the day is clamped to the end of the target month), then weeks, days and
 * time as plain seconds. The fields are read and written as UTC digits, and
 * the result is a floating date-time without 'Z'.
 *
 * *outIso must point to a buffer of at least CAL_TIME_DATE_SIZE bytes; it
 * receives the 15-character result. *outT receives its instant read as UTC.
 * An unparsable duration is not reported: it adds nothing.
 * Returns 0; 1 when a pointer (or *outIso) is NULL; 2 when localIso is not
 * a valid date or date-time or the result leaves years 0001..9999. On a
 * non-zero status nothing is written.
 */
ORV_API int cal_addLogicalDurationToLocalISO(char *durationText, char *localIso, time_t *outT,
                                             char **outIso) ORV_NOEXCEPT;

/* ---------------------------------------------------------------------
 * Periods
 * --------------------------------------------------------------------- */

/* A span "start/end" or "start/duration". end is 0 when the period is given
 * by a duration; duration is NULL when it is given by an end. The duration
 * is owned by the period. */
typedef struct period {
    time_t start;
    time_t end;
    struct duration *duration;
} period;

/*
 * Parses "start/end" or "start/duration", split at the first '/'. The start
 * is converted like cal_time_datez_to_timet; a date-only start is rejected,
 * but an invalid start is kept as 0. An end that is not a valid date-time
 * (or is date-only) is parsed as a duration into a new heap record.
 *
 * Returns 0 with start, end and duration all written (end 0 or duration
 * NULL for the form not used; a duration the record held before is not
 * freed); 1 when p or s is NULL or s has no '/'; 2 when the parts are
 * unusable; 3 when memory runs out. On failure *p is untouched.
 */
ORV_API int cal_time_buf_to_period(const char *s, period *p) ORV_NOEXCEPT;

/* A new zero-filled period with s parsed into it; a text that does not
 * parse leaves it all zero. NULL for a NULL s or when memory runs out.
 * Release with cal_time_DestroyPeriod. */
ORV_API period *cal_time_NewPeriod(const char *s) ORV_NOEXCEPT;

/* Frees (*pp)->duration and *pp and sets *pp to NULL; NULL pp or *pp is
 * ignored. Returns 0. */
ORV_API int cal_time_DestroyPeriod(period **pp) ORV_NOEXCEPT;

/* 1 when p is valid: with end 0 it needs a duration of sign 0; with an end,
 * start must not be after end. 0 otherwise (0 for NULL). */
ORV_API int cal_time_IsValidPeriod(period *p) ORV_NOEXCEPT;

/* 1 when s contains '/' with more than 14 characters before the first one
 * (room for a date-time), else 0 (0 for NULL). */
ORV_API int cal_time_MightBePeriodString(const char *s) ORV_NOEXCEPT;

/*
 * Comparators for arrays of period pointers, ordering by start only.
 * Pass them to qsort and bsearch cast to int (*)(const void *, const void *).
 *
 * cal_time_period_compare: two NULL periods are equal, a NULL period sorts
 * first; otherwise 1, -1 or 0 as (*a)->start is after, before or equal to
 * (*b)->start. A NULL a or b counts as a NULL period.
 *
 * cal_time_timet_period_compare (bsearch key *t): 1 when *p is NULL or *t is
 * after its start, -1 when before, 0 when equal. A NULL p counts as a NULL
 * period; a NULL t returns -1.
 */
ORV_API int cal_time_period_compare(period **a, period **b) ORV_NOEXCEPT;
ORV_API int cal_time_timet_period_compare(time_t *t, period **p) ORV_NOEXCEPT;

/* The period's length in seconds: 0 for NULL; end - start without a
 * duration (clamped to the time_t range); with one, the instant
 * cal_time_addDurationToTimeT gives for it applied to 0, that is the
 * length measured from the epoch in local time (0 when that fails). */
ORV_API time_t cal_time_getOffset(period *p) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_TIME_H */
