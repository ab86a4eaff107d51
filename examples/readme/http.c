#include <orvutil/cal_http.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

/* A stand-in server on a loopback port: answers one GET with the request it
 * received as the body, then one raw "PING\n" with "PONG\n". */
static void serve(int listener)
{
    alarm(60);                                    /* never outlives a stuck client */
    int fd = accept(listener, NULL, NULL);
    char request[1024];
    size_t got = 0;
    ssize_t n;
    request[0] = '\0';
    while (got < sizeof request - 1 && !strstr(request, "\n\n")
           && (n = read(fd, request + got, sizeof request - 1 - got)) > 0) {
        got += (size_t)n;
        request[got] = '\0';
    }
    const char *head = "HTTP/1.0 200 OK\nContent-Type: text/plain\n\n";
    if (write(fd, head, strlen(head)) < 0 || write(fd, request, got) < 0) return;
    close(fd);

    fd = accept(listener, NULL, NULL);
    char ping[8];
    if (read(fd, ping, sizeof ping) > 0 && write(fd, "PONG\n", 5) < 0) return;
    close(fd);
}

int main(void)
{
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in addr = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    socklen_t len = sizeof addr;
    if (bind(listener, (struct sockaddr *)&addr, len) != 0 || listen(listener, 4) != 0
        || getsockname(listener, (struct sockaddr *)&addr, &len) != 0)
        return 1;
    unsigned int port = ntohs(addr.sin_port);     /* a free port the system chose */
    pid_t server = fork();
    if (server == 0) {
        serve(listener);
        _exit(0);
    }
    close(listener);

    calhttp_conn *conn = NULL;
    calhttp_SetGlobalTimeout(10);
    if (calhttp_Open("127.0.0.1", port, &conn, NULL) == 0) {
        char line[CALHTTP_BUFFER_SIZE + 1];           /* a full buffer comes whole */
        if (SSO_calhttp_SendGet(conn, "/status", "?verbose=1", "X-Orv-Ticket: abc") == 0)
            while (calhttp_ReadGet(conn, line, sizeof line) == 0)
                fputs(line, stdout);                  /* each line with its LF (and CR) */
        if (conn->respOpen) fputs("timed out\n", stderr);
        calhttp_Close(&conn);                         /* conn = NULL */
    }

    /* Raw TCP, bounded by the connection's own time-out. */
    if (calhttp_Open("127.0.0.1", port, &conn, NULL) == 0) {
        calhttp_Timeout(conn, 5);
        calhttp_SendTCPRaw(conn, "PING\n", 5);
        char reply[256];
        int n = calhttp_ReadTCPRaw(conn, reply, sizeof reply);  /* bytes, 0 closed, -1 */
        printf("%.*s", n > 0 ? n : 0, reply);                 /* PONG */
        calhttp_Close(&conn);
    }

    kill(server, SIGTERM);                        /* done already unless something failed */
    waitpid(server, NULL, 0);
    return 0;
}
