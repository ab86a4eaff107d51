#include <orvutil/platform/protio.h>
#include <orvutil/platform/verifypass.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

int main(void)
{
    int fds[2];                                   /* a connected pair stands in for a client */
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) return 1;
    const char *client = "A1 LOGIN alice\nA2 a line longer than the buffer\n";
    if (write(fds[1], client, strlen(client)) < 0) return 1;
    close(fds[1]);                                /* the client hangs up */

    int fd = fds[0];
    struct protstream *in = prot_new(fd, 0);
    prot_settimeout(in, 60);                  /* error == PROT_ERR_TIMEOUT after 60 s idle */
    char line[16];
    while (prot_fgets(line, sizeof line, in)) {  /* a longer line comes in pieces */
        line[strcspn(line, "\n")] = '\0';
        printf("[%s]\n", line);               /* [A1 LOGIN alice] [A2 a line longe] ... */
    }
    printf("eof %d error %d\n", in->eof, in->error);  /* eof 1 error 0 */

    int bits; struct prot_ssl_info *info;
    prot_ssl_get_info(in, &bits, &info);      /* bits 0 and info NULL without TLS */
    printf("bits %d info %s\n", bits, info ? "set" : "NULL");
    prot_ssl_free_info(info);
    prot_free(in);
    close(fd);

    char *base = get_domain_basedn("example.com");  /* unless ldap.basedn.example.com is set */
    printf("%s\n", base);                     /* dc=example,dc=com */
    free(base);
    return 0;
}
