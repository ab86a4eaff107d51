#include <orvutil/cal_errorHandler.h>
#include <orvutil/cal_exactstr.h>
#include <orvutil/cal_parseutil.h>
#include <orvutil/url_encode_decode.h>
#include <plstr.h>
#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    /* Identifiers: identifier functions return 0, CAL_PARSEUTIL_E_INVALIDARG
     * (0x80070057) or CAL_PARSEUTIL_E_OUTOFMEMORY (0x8007000E). */
    char *domain = NULL;
    cal_parseutil_get_domain_from_calid("u1@d1:2", &domain);
    printf("%s\n", domain);                           /* d1: */
    PL_strfree(domain);

    /* iCalendar text, escaped and folded at 75 columns, into a stream (here
     * in memory; prot_new(fd, 1) writes to a descriptor). */
    struct protstream *out = prot_new_memory(0);
    prot_printf(out, "DESCRIPTION:");
    cal_parseutil_print_string_ical(out, "Room 4, floor 2; bring notes");
    printf("%s\n", prot_memory_data(out, NULL));     /* DESCRIPTION:Room 4\, floor 2\; bring notes */
    prot_free(out);

    /* Lists: quoted elements keep their delimiters. */
    char **list = NULL;
    int n = 0;
    cal_parseutil_get_comma_list("a,\"b,c\",d", &list, &n);
    for (int i = 0; i < n; i++)
        printf("[%s]", list[i]);                      /* [a][b,c][d] */
    printf("\n");
    cal_parseutil_free_char_list(&list, n);

    /* Web encodings: malloc'ed results, freed with free(). */
    char *q = url_Encode("a b/c");
    printf("%s\n", q);                                /* a+b%2Fc */
    free(q);

    const char *hit = cal_strexactstr("cal1,cal10", "cal10", NULL);  /* whole word */
    printf("%s %d\n", hit, cal_checkErrorRange(1, 11500));           /* cal10 1 */
    return 0;
}
