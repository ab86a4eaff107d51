#include <orvutil/cal_dict.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void)
{
    caldict *q = caldict_create_from_string("view=day&date=20261121", '&');
    const char *date = caldict_get(q, "DATE", 0);     /* case ignored */
    caldict_add_string(q, "view", strdup("week"), 1); /* replaces, frees "day" */
    char *text = caldict_get_as_string(q);
    printf("%s %s\n", date, text);                    /* 20261121 view=week&date=20261121 */
    printf("%08x\n", (unsigned)caldict_get_CRC32(q)); /* 8e1ed4cf: CRC-32 of names and values */
    free(text);
    caldict_delete_all(q, free);                      /* values were malloc'ed */
    return 0;
}
