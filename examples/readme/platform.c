#include <orvutil/platform/array.h>
#include <orvutil/platform/config.h>
#include <orvutil/platform/zolog.h>
#include <stdio.h>

int main(void)
{
    array_t *names = array_new();
    strarray_append(names, "alpha");                  /* the array keeps a copy */
    int i = strarray_indexof(names, "ALPHA", 1);      /* 1: configuration-name compare */
    printf("alpha at %d\n", i);                       /* alpha at 0 */
    strarray_free_and_destroy(names);

    config_cache *conf = config_getdefaultcache();    /* $ORV_HOME/config/orv.conf */
    const char *dir = config_get_string(conf, "logfile.logdir", "logs");
    int sleep = config_get_int(conf, "service.admin.sleeptime", 1);
    printf("%s %d\n", dir, sleep);                    /* logs 1 (no such file: defaults) */

    zolog(0, 3, "%s: cannot open %s: %m", "UTIL", "x.conf");  /* level 3 (error), to stderr */
    return 0;
}
