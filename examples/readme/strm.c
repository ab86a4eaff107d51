#include <orvutil/cal_strm.h>
#include <stdio.h>

int main(void)
{
    calstrm *s = calstrm_new(0);
    calstrm_printf(s, "%s=%d;", "count", 42);
    fwrite(calstrm_getbuffer(s), 1, calstrm_getlength(s), stdout);  /* count=42; (not terminated) */
    printf("\n");
    calstrm_delete(s);
    return 0;
}
