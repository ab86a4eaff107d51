#include <orvutil/cal_domain.h>
#include <orvutil/cal_i18n.h>
#include <orvutil/platform/mee.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void)
{
    int id = cal_i18n_get_sessionlanguageid("de");
    printf("%s\n", cal_i18n_get_sessioncharset(id));       /* ISO-8859-1 */
    char *local = MEE_UTF8ToLocal(id, "caf\xc3\xa9");      /* NULL if it cannot convert */
    printf("%zu bytes\n", local ? strlen(local) : 0);       /* 4 bytes */
    char *help = cal_i18n_get_localized_file("html", "help.html", "de");  /* de, site, en; or NULL */
    char *domain = NULL;
    cal_get_default_domain(&domain);                        /* *domain must be NULL on entry */
    free(help); free(local); free(domain);
    return 0;
}
