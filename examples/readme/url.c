#include <orvutil/url_parser.h>
#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    URL *u = URLCreate("http://cal.example.com:8080/home/day.ics?tz=UTC");
    printf("%s %d\n", URLGetHost(u), URLGetPort(u));  /* cal.example.com 8080 */
    URLSetCSID(u, "home/week.ics");
    char *text = URLGetUrl(u);
    printf("%s\n", text);          /* http://cal.example.com:8080/home/week.ics?tz=UTC */
    free(text);
    URLFree(u);
    return 0;
}
