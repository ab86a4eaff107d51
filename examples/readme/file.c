#include <orvutil/cal_file.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void)
{
    char dos[] = "C:\\data\\cal";
    calfile_ToLocalPath(dos);
    printf("%s\n", dos);                              /* /data/cal */

    char top[] = "/tmp/orvXXXXXX", dir[64], a[80], b[80], name[80];
    if (!mkdtemp(top)) return 1;                      /* everything below goes here */
    snprintf(dir, sizeof dir, "%s/data/cal", top);
    calfile_mkdir_recursive(dir);                     /* parents too; logs "UTIL: ..." on failure */
    snprintf(a, sizeof a, "%s/a.ics", dir);
    snprintf(b, sizeof b, "%s/b.ics", dir);
    FILE *f = fopen(a, "w");
    fputs("BEGIN:VCALENDAR\n", f);
    fclose(f);
    int first = calfile_CopyFile(a, b, 1);            /* 0: copied */
    int again = calfile_CopyFile(a, b, 1);            /* -1: 1 refuses an existing target */
    printf("%d %d\n", first, again);
    calfile_RenameFile(b, a);                         /* replaces a.ics; restores it on failure */

    char prefix[80];
    snprintf(prefix, sizeof prefix, "%s/job", top);
    calfile_mktemp_filename(prefix, ".tmp", name, sizeof name);  /* the first free "job<N>.tmp" */
    printf("%s\n", strrchr(name, '/') + 1);          /* job0.tmp */

    calfile_delete_dir(dir);                          /* its files, then the directory */
    calfile_delete_dir_recursive(top);                /* two levels: top/data, then top */
    return 0;
}
