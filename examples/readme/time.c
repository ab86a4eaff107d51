#include <orvutil/cal_time.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

int main(void)
{
    setenv("TZ", "EST5", 1);                          /* local time follows TZ */
    tzset();

    time_t t;
    int date_only;
    cal_time_datez_to_timet("20240101T100000Z", &t, &date_only); /* UTC: 'Z' at 15 */
    char text[CAL_TIME_DATEZ_SIZE];
    cal_time_timet_to_datez(t + 3600, text);
    printf("%s\n", text);                                         /* 20240101T110000Z */

    duration d;
    if (cal_time_buf_to_duration("P1DT2H", &d) == 0)
        cal_time_addDurationToTimeT(&d, t, &t);                   /* by the local calendar */
    char dtext[CAL_TIME_DURATION_SIZE];
    cal_time_duration_to_buf(&d, dtext);
    cal_time_timet_to_datez(t, text);
    printf("%s %s\n", dtext, text);                               /* P1DT2H 20240102T120000Z */

    char iso[CAL_TIME_DATE_SIZE], *out = iso;
    cal_addLogicalDurationToLocalISO("P1M", "20240131T100000", &t, &out);
    printf("%s\n", iso);                                          /* 20240229T100000 */

    period *p = cal_time_NewPeriod("20240101T100000Z/PT1H");
    if (cal_time_IsValidPeriod(p))
        printf("%lld seconds\n", (long long)cal_time_getOffset(p)); /* 3600 seconds */
    cal_time_DestroyPeriod(&p);                                    /* p = NULL */
    return 0;
}
