#include <orvutil/cal_counter.h>
#include <orvutil/cal_file.h>
#include <orvutil/platform/config.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

int main(void)
{
    /* An instance directory: <top>/config/orv.conf names it, and
     * <top>/config/counter.conf lists the counters. */
    char top[] = "/tmp/orvXXXXXX", path[64];
    if (!mkdtemp(top)) return 1;
    snprintf(path, sizeof path, "%s/config", top);
    mkdir(path, 0755);
    snprintf(path, sizeof path, "%s/config/counter.conf", top);
    FILE *f = fopen(path, "w");
    fputs("http.requests    = count Requests answered since the server started\n"
          "http.connections = gauge Connections open now\n", f);
    fclose(f);
    snprintf(path, sizeof path, "%s/config/orv.conf", top);
    f = fopen(path, "w");
    fprintf(f, "local.instancedir = %s\n", top);
    fclose(f);
    config_setdefaultfile(path);

    counterobject *http = NULL;
    counterinstance *all = calcounter_createinstance("http", 0, &http);   /* "global"; NULL on failure */
    counterinstance *mine = calcounter_openinstance(http, "worker-1");  /* names "global..." refused */
    counterhandle requests = calcounter_getcounter(http, "requests");   /* 0 when unknown (logged) */
    counterhandle connections = calcounter_getcounter(http, "connections");

    /* The hot path, inline: one atomic add on the mapped row; no lock, no call. */
    counter_add(all, requests, 1);
    counter_add(mine, requests, 1);
    counter_add(mine, connections, 1);
    counter_add(mine, connections, -1);                                /* gauges go down */
    printf("%llu %llu %llu\n", (unsigned long long)counter_get(all, requests),
           (unsigned long long)counter_get(mine, requests),
           (unsigned long long)counter_get(mine, connections));      /* 1 1 0 */

    snprintf(path, sizeof path, "%s/counter/http.cnt", top);
    struct stat st;
    printf("registry file: %s\n", stat(path, &st) == 0 ? "yes" : "no");  /* registry file: yes */
    calfile_delete_dir_recursive(top);  /* config/ and counter/, then top */
    /* everything is closed at exit (calcounter_uninit through atexit) */
    return 0;
}
