#include <orvutil/cal_tree.h>
#include <stdlib.h>
#include <string.h>

static void *copy_name(void *name) { return strdup(name); }

static void print_name(struct protstream *out, void *name, void *arg)
{
    (void)arg;
    prot_printf(out, "%s", (char *)name);
}

int main(void)
{
    CT_Node *cal = CT_Create(strdup("VCALENDAR"));
    CT_Node *event = CT_Create(strdup("VEVENT"));
    CT_AddLastChild(cal, event);
    CT_AddLastChild(event, CT_Create(strdup("VALARM")));
    CT_AddSibling(event, CT_Create(strdup("VTODO")));  /* after VEVENT */

    CT_Node *copy;
    if (CT_Copy(cal, copy_name, free, &copy) == CT_OK) {  /* nothing is left behind on failure */
        struct protstream *out = prot_new(1, 1);
        CT_Dump(copy, out, print_name, NULL);  /* "VCALENDAR\n  VEVENT\n    VALARM\n  VTODO\n" */
        prot_free(out);                        /* flushes */
        CT_Free(&copy, free);
    }
    CT_Free(&cal, free);                       /* data freed children first; cal is NULL */
    return cal != NULL;
}
