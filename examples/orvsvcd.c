/*
 * orvsvcd: a small server built the way the suite's daemons are, on the
 * public API only. It checks its identity, finds its library directory and
 * configuration, records the state "init" then "ready" in its pid file,
 * logs, counts its work, and answers lines on a loopback TCP port:
 *
 *     stats        ->  requests=N refreshes=N uptime=N
 *     anything     ->  ok anything
 *
 * The counts are also published through the counter layer (object
 * "orvsvcd": requests, refreshes, uptime) when the instance's counter.conf
 * declares them.
 *
 * It works in its instance directory ("local.instancedir"), where the
 * relative paths of the configuration lead, and logs through the logging
 * set-up to "<logfile.logdir>/<service>.log" (default logs/).
 *
 * SIGHUP reloads the configuration and the logs (in every process of the
 * group); SIGTERM stops it cleanly: the workers are stopped and reaped, then
 * the pid file is removed. It runs in the foreground, as the leader of its
 * own process group.
 *
 *     orvsvcd [-c conf] [-n service] [-p port] [-s seconds] [-w workers]
 *             [-T] [-W] [-u file]
 *     orvsvcd [-c conf] [-n service] -a text
 *
 * -c the configuration file (a relative name is taken under the "config"
 *    directory beside the program); -n the service name (default orvsvcd);
 * -p the port (default "service.<name>.port", else any free port; the port
 *    taken is written to "<instancedir>/<name>.port"); -s stay in "init" for
 *    that many seconds first; -w fork that many workers, registered as the
 *    service's children; -T ignore SIGTERM; -W workers ignore SIGTERM; -u run
 *    as the owner of that file (exit 70 or 64 when that fails);
 * -a send one line to the running service and print its answer.
 *
 * Exit status: 0 after a clean stop or an answered question; 1 when the
 * question gets no answer; 64 usage; 70 when it cannot start.
 */
#define _GNU_SOURCE
#include <orvutil.h>

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define MAX_CLIENTS 64
#define LINE_SIZE   1024
#define MAX_WORKERS 64

struct options {
    const char *conf, *service, *ask, *owner_file;
    int port, slow, workers, ignore_term, workers_ignore_term;
};

struct client {
    int fd;
    size_t used;
    char line[LINE_SIZE];
};

static volatile sig_atomic_t got_term, got_hup;
static unsigned long requests, refreshes;
static time_t started;

/* The same counts, published for other processes ("orvadmin counters") when
 * <instancedir>/config/counter.conf declares the object "orvsvcd" with the
 * counters requests, refreshes (counts) and uptime (a gauge). */
static counterinstance *published;
static counterhandle requests_counter, refreshes_counter, uptime_counter;

static void publish_counters(void) {
    counterobject *object = NULL;
    calcounter_init();
    published = calcounter_createinstance("orvsvcd", 0, &object);
    if (published == NULL) return; /* logged by the layer; the counts stay local */
    requests_counter = calcounter_getcounter(object, "requests");
    refreshes_counter = calcounter_getcounter(object, "refreshes");
    uptime_counter = calcounter_getcounter(object, "uptime");
}

static void count(counterhandle counter, unsigned long *local) {
    ++*local;
    if (published != NULL && counter != 0) counter_add(published, counter, 1);
}

static void on_term(int sig) {
    (void)sig;
    got_term = 1;
}

static void on_hup(int sig) {
    (void)sig;
    got_hup = 1;
}

static void handle(int sig, void (*fn)(int)) {
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_handler = fn;
    sigemptyset(&sa.sa_mask);
    sigaction(sig, &sa, NULL);
}

static int usage(void) {
    fprintf(stderr,
            "usage: orvsvcd [-c conf] [-n service] [-p port] [-s seconds] [-w workers] [-T] [-W] [-u file]\n"
            "       orvsvcd [-c conf] [-n service] -a text\n");
    return 64;
}

static int number(const char *text, int max, int *out) {
    char *end;
    long v = strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || v < 0 || v > max) return -1;
    *out = (int)v;
    return 0;
}

static int parse_options(int argc, char **argv, struct options *o) {
    int c;
    memset(o, 0, sizeof *o);
    o->service = "orvsvcd";
    o->port = -1;
    while ((c = getopt(argc, argv, "c:n:p:s:w:TWu:a:")) != -1) {
        switch (c) {
            case 'c': o->conf = optarg; break;
            case 'n': o->service = optarg; break;
            case 'p':
                if (number(optarg, 65535, &o->port) != 0) return -1;
                break;
            case 's':
                if (number(optarg, 3600, &o->slow) != 0) return -1;
                break;
            case 'w':
                if (number(optarg, MAX_WORKERS, &o->workers) != 0) return -1;
                break;
            case 'T': o->ignore_term = 1; break;
            case 'W': o->workers_ignore_term = 1; break;
            case 'u': o->owner_file = optarg; break;
            case 'a': o->ask = optarg; break;
            default: return -1;
        }
    }
    return optind == argc ? 0 : -1;
}

static void port_file(const char *service, char *out, size_t size) {
    const char *dir = config_get_string(config_getdefaultcache(), "local.instancedir", ".");
    snprintf(out, size, "%s/%s.port", dir, service);
}

static struct sockaddr_in loopback(int port) {
    struct sockaddr_in a;
    memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_port = htons((unsigned short)port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

static int listen_on(int port) {
    struct sockaddr_in a = loopback(port);
    int one = 1;
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (bind(fd, (struct sockaddr *)&a, sizeof a) != 0 || listen(fd, 16) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

static int bound_port(int fd) {
    struct sockaddr_in a;
    socklen_t len = sizeof a;
    return getsockname(fd, (struct sockaddr *)&a, &len) == 0 ? ntohs(a.sin_port) : -1;
}

static int connect_to(int port) {
    struct sockaddr_in a = loopback(port);
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, (struct sockaddr *)&a, sizeof a) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

/* -a: one line to the running service, its answer to standard output. */
static int ask(const struct options *o) {
    char path[CALSERVICE_PATH_SIZE], line[LINE_SIZE];
    FILE *f;
    int port = -1, fd;
    ssize_t n;
    size_t got = 0;
    port_file(o->service, path, sizeof path);
    f = fopen(path, "r");
    if (f == NULL || fscanf(f, "%d", &port) != 1) {
        fprintf(stderr, "orvsvcd: %s is not running (no %s)\n", o->service, path);
        if (f) fclose(f);
        return 1;
    }
    fclose(f);
    fd = connect_to(port);
    if (fd < 0) {
        fprintf(stderr, "orvsvcd: cannot reach %s on port %d\n", o->service, port);
        return 1;
    }
    snprintf(line, sizeof line, "%s\n", o->ask);
    if (write(fd, line, strlen(line)) < 0) {
        close(fd);
        return 1;
    }
    while (got < sizeof line - 1 && (n = read(fd, line + got, sizeof line - 1 - got)) > 0) {
        got += (size_t)n;
        if (memchr(line, '\n', got)) break;
    }
    close(fd);
    line[got] = '\0';
    fputs(line, stdout);
    return got > 0 && line[got - 1] == '\n' ? 0 : 1;
}

static void answer(struct client *c) {
    char reply[LINE_SIZE + 64];
    if (strcmp(c->line, "stats") == 0)
        snprintf(reply, sizeof reply, "requests=%lu refreshes=%lu uptime=%ld\n", requests, refreshes,
                 (long)(time(NULL) - started));
    else
        snprintf(reply, sizeof reply, "ok %s\n", c->line);
    count(requests_counter, &requests);
    if (send(c->fd, reply, strlen(reply), MSG_NOSIGNAL) < 0) zolog(0, 4, "cannot answer a client: %m");
}

/* Reads what the client sent and answers every whole line; -1 when the
 * client is done (or sent a line too long to take). */
static int serve(struct client *c) {
    ssize_t n = read(c->fd, c->line + c->used, sizeof c->line - 1 - c->used);
    char *nl;
    if (n <= 0) return -1;
    c->used += (size_t)n;
    c->line[c->used] = '\0';
    while ((nl = strchr(c->line, '\n')) != NULL) {
        size_t rest = c->used - (size_t)(nl + 1 - c->line);
        *nl = '\0';
        if (nl > c->line && nl[-1] == '\r') nl[-1] = '\0';
        answer(c);
        memmove(c->line, nl + 1, rest + 1);
        c->used = rest;
    }
    return c->used == sizeof c->line - 1 ? -1 : 0;
}

static void refresh(void) {
    got_hup = 0;
    count(refreshes_counter, &refreshes);
    config_reloaddefault();
    callog_refresh();
    zolog(0, 5, "refreshed: configuration and logs reloaded");
}

/* How many workers the pid file lists. */
static int registered_workers(const char *service) {
    int *pids = NULL;
    const int n = config_readpidfile_list(service, &pids, "child_process");
    free(pids);
    return n;
}

static void worker(const struct options *o, int listen_fd) {
    close(listen_fd);
    handle(SIGTERM, o->workers_ignore_term ? SIG_IGN : on_term);
    if (calservice_append_child_pid(o->service) != 0) zolog(0, 3, "worker %d cannot register: %m", (int)getpid());
    zolog(0, 5, "worker %d started", (int)getpid());
    while (!got_term) {
        pause();
        if (got_hup) {
            got_hup = 0;
            config_reloaddefault();
            callog_refresh();
            zolog(0, 5, "worker %d refreshed", (int)getpid());
        }
    }
    zolog(0, 5, "worker %d stopping", (int)getpid());
    service_exit(0);
    _exit(0);
}

/* Reaps the workers that ended; returns how many are left. */
static int reap(int running) {
    while (running > 0 && waitpid(-1, NULL, WNOHANG) > 0) --running;
    return running;
}

static void run(int listen_fd, int running) {
    struct client clients[MAX_CLIENTS];
    struct pollfd fds[MAX_CLIENTS + 1];
    int nclients = 0, i;
    while (!got_term) {
        fds[0].fd = listen_fd;
        fds[0].events = nclients < MAX_CLIENTS ? POLLIN : 0;
        for (i = 0; i < nclients; ++i) {
            fds[i + 1].fd = clients[i].fd;
            fds[i + 1].events = POLLIN;
        }
        if (poll(fds, (nfds_t)nclients + 1, 200) < 0 && errno != EINTR) break;
        if (got_hup) refresh();
        if (published != NULL && uptime_counter != 0)
            counter_set(published, uptime_counter, (uint64_t)(time(NULL) - started));
        running = reap(running);
        for (i = nclients - 1; i >= 0; --i) {
            if (fds[i + 1].revents == 0 || serve(&clients[i]) == 0) continue;
            close(clients[i].fd);
            clients[i] = clients[--nclients];
        }
        if (fds[0].revents & POLLIN) {
            int fd = accept4(listen_fd, NULL, NULL, SOCK_CLOEXEC);
            if (fd >= 0) {
                clients[nclients].fd = fd;
                clients[nclients].used = 0;
                ++nclients;
            }
        }
    }
    for (i = 0; i < nclients; ++i) close(clients[i].fd);
}

int main(int argc, char **argv) {
    struct options o;
    char conf[CALSERVICE_PATH_SIZE], portpath[CALSERVICE_PATH_SIZE];
    pid_t workers[MAX_WORKERS];
    char key[300];
    int listen_fd, i, forked = 0;
    FILE *f;

    if (parse_options(argc, argv, &o) != 0) return usage();
    /* Its own process group, so that "refresh" and the stops reach the
     * workers and nothing else, however it was started. */
    if (o.ask == NULL) setpgid(0, 0);
    if (o.owner_file != NULL) {
        int status = calservice_check_id_permissions(o.owner_file);
        if (status != 0) return status;
    }
    calservice_changedir_lib(argv[0]);
    calservice_setup_serverconf(argv[0], conf, o.conf);
    config_setdefaultfile(conf);
    if (o.ask != NULL) return ask(&o);

    /* Relative paths of the configuration (logs, pid files, counters) are
     * the instance's: work there. */
    if (chdir(config_get_string(config_getdefaultcache(), "local.instancedir", ".")) != 0)
        calservice_exit_fatal("cannot enter the instance directory", 70);
    /* The log is "<logfile.logdir>/<service>.log", records only to the file. */
    callog_init(o.service, NULL, 0);
    started = time(NULL);
    publish_counters();
    handle(SIGTERM, o.ignore_term ? SIG_IGN : on_term);
    handle(SIGHUP, on_hup);
    signal(SIGPIPE, SIG_IGN);
    if (calservice_set_started(o.service) != 0) calservice_exit_fatal("cannot record the pid file", 70);
    snprintf(key, sizeof key, "service.%s.port", o.service);
    if (o.port < 0) o.port = config_get_int(config_getdefaultcache(), key, 0);
    listen_fd = listen_on(o.port);
    if (listen_fd < 0) {
        calservice_set_stopped(o.service);
        calservice_exit_fatal("cannot listen on the loopback port", 70);
    }
    port_file(o.service, portpath, sizeof portpath);
    f = fopen(portpath, "w");
    if (f != NULL) {
        fprintf(f, "%d\n", bound_port(listen_fd));
        fclose(f);
    }
    for (i = 0; i < o.workers; ++i) {
        pid_t pid = fork();
        if (pid == 0) worker(&o, listen_fd);
        if (pid > 0) workers[forked++] = pid;
    }
    zolog(0, 5, "%s started with %d workers, listening on 127.0.0.1:%d", o.service, forked, bound_port(listen_fd));
    /* Ready means the workers can be found: wait (at most 10 s) until each
     * has registered itself in the pid file. */
    for (i = 0; i < 100 && !got_term && registered_workers(o.service) < forked; ++i) usleep(100000);
    for (i = 0; i < o.slow && !got_term; ++i) sleep(1);
    if (!got_term && calservice_set_ready(o.service) != 0) zolog(0, 3, "cannot record the state ready: %m");

    run(listen_fd, forked);

    close(listen_fd);
    zolog(0, 5, "stopping: %lu requests served", requests);
    for (i = 0; i < forked; ++i) kill(workers[i], SIGTERM);
    /* The pid file lists the workers: it stays until they are gone, so a
     * stop that has to force them still finds them. */
    while (waitpid(-1, NULL, 0) > 0 || errno == EINTR) {
    }
    unlink(portpath);
    calservice_set_stopped(o.service);
    zolog(0, 5, "stopped");
    service_exit(0);
    return 0;
}
