#include <orvutil/cal_file.h>
#include <orvutil/cal_log.h>
#include <orvutil/platform/config.h>
#include <orvutil/platform/zolog.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

static void write_conf(const char *path, const char *top, const char *level)
{
    FILE *f = fopen(path, "w");
    fprintf(f, "logfile.logdir = %s/logs\nlogfile.loglevel = %s\n", top, level);
    fclose(f);
}

/* Prints a log file's records with the time and the pid masked. */
static void show(const char *top, const char *name)
{
    char path[80], record[512];
    snprintf(path, sizeof path, "%s/logs/%s", top, name);
    FILE *f = fopen(path, "r");
    printf("%s:\n", name);
    while (f && fgets(record, sizeof record, f)) {
        char *rest = strchr(record, ' '), *pid = strchr(record, '['), *end = strchr(record, ']');
        if (!rest || !pid || !end) continue;
        printf("  TIME%.*s[PID%s", (int)(pid - rest), rest, end);
    }
    if (f) fclose(f);
}

int main(void)
{
    char top[] = "/tmp/orvXXXXXX", conf[64];
    if (!mkdtemp(top)) return 1;                      /* the logs go to <top>/logs */
    snprintf(conf, sizeof conf, "%s/config", top);
    mkdir(conf, 0755);
    snprintf(conf, sizeof conf, "%s/config/orv.conf", top);
    write_conf(conf, top, "Notice");
    config_setdefaultfile(conf);

    /* At start, from the main thread: handle 0 (the default log, which the
     * library writes to) gets the logfile.* keys; stderr copy off. */
    callog_init("calendar", "httpd", 0);              /* its own handle, unconfigured */
    int audit = callog_open("calendar", "audit");     /* a second log, configured */
    zolog(0, 5, "started");                           /* level 5: notice, to httpd.log */
    zolog(audit, 5, "login %s", "alice");             /* to audit.log */
    zolog(audit, 6, "session %d", 1);                 /* information: below Notice, dropped */

    /* On "refresh": read the file again, then every handle. */
    write_conf(conf, top, "Information");
    config_reloaddefault();
    callog_refresh();
    zolog(audit, 6, "session %d", 2);                 /* kept now */

    show(top, "httpd.log");     /*   TIME Notice General calendar/httpd[PID] started */
    show(top, "audit.log");     /*   TIME Notice General calendar/audit[PID] login alice, then session 2 */
    callog_uninit();                                  /* closes the handles opened here */
    calfile_delete_dir_recursive(top);                /* config/ and logs/, then top */
    return 0;
}
