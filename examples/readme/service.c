#include <orvutil/cal_exec.h>
#include <orvutil/cal_service.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

/* The server side: what a daemon (examples/orvsvcd) does over its life. */
static void serve(void)
{
    setpgid(0, 0);                                    /* refresh and stop reach its group */
    calservice_set_started("mysvc");                  /* pid file run/mysvc.pid: "init" */
    if (fork() == 0) {                                /* a worker registers itself */
        signal(SIGHUP, SIG_IGN);                      /* a refresh reloads; here nothing */
        calservice_append_child_pid("mysvc");
        for (;;) pause();                             /* until SIGTERM */
    }
    sleep(1);
    calservice_set_ready("mysvc");                    /* "ready" (READY=1 under systemd) */
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigaddset(&term, SIGHUP);
    sigprocmask(SIG_BLOCK, &term, NULL);
    for (int sig = 0; sig != SIGTERM;)
        sigwait(&term, &sig);                         /* SIGHUP: reload; SIGTERM: stop */
    calservice_set_stopped("mysvc");                  /* file removed; the worker goes with the group */
    exit(0);
}

int main(void)
{
    signal(SIGCHLD, SIG_IGN);                         /* no zombie: a stop sees the service go */
    if (fork() == 0) serve();

    /* The tool side, as orvadmin's status, refresh and stop commands do it. */
    int32_t pid = 0, state = 0;
    if (calservice_wait_ready("mysvc", 30, &pid) != 0) return 1;
    calservice_get_state("mysvc", &pid, &state);
    printf("state %d\n", state);                      /* state 1 (CALSERVICE_STATE_READY) */
    printf("refresh %d\n", calservice_signal("mysvc", "refresh"));  /* refresh 0: SIGHUP to the group */
    printf("stop %d\n", calexec_stop("mysvc", pid, 20, 0));         /* stop 0: SIGTERM (SIGKILL later) */
    calservice_get_state("mysvc", &pid, &state);
    printf("state %d\n", state);                      /* state 2 (CALSERVICE_STATE_STOPPED) */
    return 0;
}
