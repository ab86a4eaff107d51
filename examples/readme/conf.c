#include <orvutil/cal_conf.h>
#include <orvutil/platform/config.h>
#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    char dir[] = "/tmp/orvXXXXXX", path[64];
    if (!mkdtemp(dir)) return 1;
    snprintf(path, sizeof path, "%s/orv.conf", dir);
    FILE *f = fopen(path, "w");
    fputs("# logging\nlogfile.logdir = logs\nobsolete.key = 1\n", f);
    fclose(f);

    calconf_handle *conf = NULL;
    if (calconf_Open(path, &conf) == 0) {             /* -1 still leaves a handle to close */
        const char *dir = calconf_Get(conf, "logfile.logdir");   /* borrowed, or NULL */
        printf("%s\n", dir);                                      /* logs */
        calconf_Modify(conf, "logfile.loglevel", "Debug");
        calconf_Delete(conf, "obsolete.key", 1);      /* 0 deleted, 1 nothing matched */
    }
    calconf_CloseQuick(&conf, 0);                     /* sorted rewrite: the comment is gone */

    config_file_set(path, "local.sitelanguage", "fr");   /* in place: every other line stays */

    char line[128];
    f = fopen(path, "r");
    while (fgets(line, sizeof line, f))
        fputs(line, stdout);     /* logfile.logdir = logs, logfile.loglevel = Debug, local.sitelanguage = fr */
    fclose(f);
    remove(path);
    remove(dir);
    return 0;
}
