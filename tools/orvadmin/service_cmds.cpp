// orvadmin commands that observe and control services through their pid
// files, start programs and list processes.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "orvadmin.hpp"
#include "orvutil/cal_exec.h"
#include "orvutil/cal_service.h"
#include "orvutil/platform/pidfile.h"

namespace orvadmin {
namespace {

const char *const state_names[] = {"init", "ready", "stopped", "unknown"};

bool seconds(const char *command, const char *text, int32_t *out) {
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || errno != 0 || v < 0 || v > 86400) {
        fail(command, "%s is not a number of seconds (0-86400)", text);
        return false;
    }
    *out = static_cast<int32_t>(v);
    return true;
}

void print_children(const char *service) {
    int *pids = nullptr;
    if (config_readpidfile_list(service, &pids, "child_process") < 1) return;
    std::string line;
    for (int *p = pids; *p != 0; ++p) {
        if (!line.empty()) line += ' ';
        line += std::to_string(*p);
    }
    std::free(pids);
    out("children = %s\n", line.c_str());
}

}  // namespace

int cmd_status(int, char **argv) {
    int32_t pid = 0, state = 0;
    out("service = %s\n", argv[1]);
    if (calservice_get_state(argv[1], &pid, &state) != 0) {
        out("state = stopped\n");
        return 1;
    }
    if (config_pidfile_stale(argv[1]) == 1) {
        out("state = stale\npid = %d (gone)\n", pid);
        return 1;
    }
    out("state = %s\npid = %d\n", state_names[state], pid);
    print_children(argv[1]);
    return state == CALSERVICE_STATE_INIT || state == CALSERVICE_STATE_READY ? 0 : 1;
}

int cmd_wait(int, char **argv) {
    int32_t limit = 0, pid = 0;
    const bool ready = std::strcmp(argv[2], "ready") == 0;
    if ((!ready && std::strcmp(argv[2], "stopped") != 0) || !seconds(argv[0], argv[3], &limit))
        return fail(argv[0], "usage: wait SERVICE ready|stopped SECONDS");
    if (ready ? calservice_wait_ready(argv[1], limit, &pid) != 0 : calservice_wait_stopped(argv[1], limit) != 0)
        return fail(argv[0], "%s is not %s after %d seconds", argv[1], argv[2], limit);
    out(ready ? "%s is ready, pid %d\n" : "%s is stopped\n", argv[1], pid);
    return 0;
}

int cmd_refresh(int, char **argv) {
    if (calservice_signal(argv[1], "refresh") != 0) return fail(argv[0], "%s cannot be refreshed", argv[1]);
    out("%s refreshed\n", argv[1]);
    return 0;
}

int cmd_stop(int, char **argv) {
    int32_t limit = 0, pid = 0, state = 0;
    if (!seconds(argv[0], argv[2], &limit)) return 1;
    if (calservice_get_state(argv[1], &pid, &state) != 0) return fail(argv[0], "%s is not running", argv[1]);
    if (config_pidfile_stale(argv[1]) == 1) {
        // Its process is gone: signalling the pid could reach a stranger.
        calservice_set_stopped(argv[1]);
        out("%s was not running; its stale pid file is removed\n", argv[1]);
        return 0;
    }
    if (calexec_stop(argv[1], pid, limit, 0) != 0)
        return fail(argv[0], "%s (%d) still runs after %d seconds", argv[1], pid, limit);
    out("%s stopped\n", argv[1]);
    return 0;
}

int cmd_start(int argc, char **argv) {
    if (access(argv[1], X_OK) != 0) return fail(argv[0], "cannot run %s: %s", argv[1], std::strerror(errno));
    // Started from a child that ends at once, so the program is never this
    // tool's child: a later stop in the same session sees it end instead of
    // a zombie waiting for us.
    const pid_t middle = fork();
    if (middle < 0) return fail(argv[0], "cannot fork: %s", std::strerror(errno));
    if (middle == 0) {
        const pid_t self = getpid();
        const int r = calexec_start(argv[1], argv + 1);
        _exit(getpid() != self ? 127 : r == 0 ? 0 : 1);  // 127: the program's own exec failed
    }
    int status = 0;
    while (waitpid(middle, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return fail(argv[0], "cannot start %s", argv[1]);
    out("started %s", argv[1]);
    for (int i = 2; i < argc; ++i) out(" %s", argv[i]);
    out("\n");
    return 0;
}

int cmd_ps(int argc, char **argv) {
    calexec_proclist *list = nullptr;
    calexec_getproclist(&list);
    int32_t pid = 0;
    char *name = nullptr;
    int shown = 0;
    for (int r = calexec_getfirstproc(list, &pid, &name); r == 0; r = calexec_getnextproc(list, &pid, &name)) {
        printable(name);
        if (argc > 1) {
            std::string bare = name;
            calexec_stripname(bare.data(), 1, 1, 0);
            if (!ascii_iequal(bare.c_str(), argv[1])) continue;
        }
        out("%d %s\n", pid, name);
        ++shown;
    }
    calexec_freeproclist(&list);
    return argc > 1 && shown == 0 ? fail(argv[0], "no process named %s", argv[1]) : 0;
}

}  // namespace orvadmin
