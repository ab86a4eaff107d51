// Process control: start, limits, user and group, the /proc process table,
// and the stop sequences of processes and services.
#include "orvutil/cal_exec.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "orv/ascii.hpp"
#include "orvutil/cal_service.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/pidfile.h"
#include "orvutil/platform/sys.h"
#include "orvutil/platform/zolog.h"

struct calexec_proclist {
    uint32_t count;
    uint32_t cursor;
    calexec_proc *records;
};

namespace {

constexpr auto kChildRoundsBound = std::chrono::seconds(5);

int stoptime_next() { return config_get_int(config_getdefaultcache(), "service.admin.stoptime.next", 30); }

int32_t hand_out(calexec_proclist *list, uint32_t index, int32_t *pid, char **name) {
    if (list == nullptr || index >= list->count) return -1;
    if (pid != nullptr) *pid = list->records[index].pid;
    if (name != nullptr) *name = list->records[index].name;
    return 0;
}

// Reads at most 4095 bytes of /proc/<pid>/stat; false when it cannot be
// opened (the process is gone, or hidden from us).
bool read_stat(int pid, char (&buf)[4096]) {
    char path[64];
    std::snprintf(path, sizeof path, "%s/%d/stat", "/proc", pid);
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    ssize_t n;
    do {
        n = ::read(fd, buf, sizeof buf - 1);
    } while (n < 0 && errno == EINTR);
    ::close(fd);
    if (n < 0) return false;
    buf[n] = '\0';
    return true;
}

}  // namespace

extern "C" {

int32_t calexec_start(const char *program, char *const argv[]) noexcept {
    const pid_t pid = ::fork();
    if (pid < 0) return -1;
    if (pid == 0) ::execv(program, argv);
    return 0;
}

int32_t calexec_start_and_wait(const char *program, char *const argv[]) noexcept {
    const pid_t pid = ::fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        ::execv(program, argv);
        return 0;
    }
    pid_t reaped;
    do {
        reaped = ::wait(nullptr);
    } while (reaped < 0 && errno == EINTR);
    return reaped == pid ? 0 : -1;
}

int32_t calexec_path(const char *name, array_t **array) noexcept {
    if (array == nullptr) return -6000;
    array_free_and_destroy(*array);
    *array = array_new();
    if (*array == nullptr) return -6000;
    char cwd[PATH_MAX];
    if (::getcwd(cwd, sizeof cwd) == nullptr) cwd[0] = '\0';
    const std::string path = std::string(cwd) + "/" + (name ? name : "");
    strarray_append(*array, path.c_str());
    return 0;
}

int32_t calexec_setlimits(void) noexcept {
    (void)::setpriority(PRIO_PROCESS, 0, -2);
    struct rlimit rl;
    if (::getrlimit(RLIMIT_NOFILE, &rl) == 0) {
        rl.rlim_max = 0x80000;
        // Halving reaches 0 in 20 steps; a soft limit above the hard one is
        // never accepted, so stop there.
        while (::setrlimit(RLIMIT_NOFILE, &rl) != 0 && rl.rlim_max > rl.rlim_cur) rl.rlim_max /= 2;
    }
    if (::getrlimit(RLIMIT_DATA, &rl) != 0) return -1;
    rl.rlim_cur = RLIM_INFINITY;
    rl.rlim_max = RLIM_INFINITY;
    return ::setrlimit(RLIMIT_DATA, &rl);
}

void calexec_fixfile(uint32_t uid, uint32_t gid, ...) noexcept {
    va_list ap;
    va_start(ap, gid);
    size_t sum = 0;
    for (const char *piece; (piece = va_arg(ap, const char *)) != nullptr;) sum += std::strlen(piece);
    va_end(ap);
    if (sum == 0) return;
    char *path = static_cast<char *>(std::malloc(sum + 1));
    if (path == nullptr) return;
    char *end = path;
    va_start(ap, gid);
    for (const char *piece; (piece = va_arg(ap, const char *)) != nullptr;) end = ::stpcpy(end, piece);
    va_end(ap);
    if (::chown(path, uid, gid) != 0) {
        // Best effort: the caller fixes what it can.
    }
    std::free(path);
}

int32_t calexec_setusergroup(const char *user, const char *group) noexcept {
    if (group != nullptr) {
        const struct group *gr = ::getgrnam(group);
        if (gr == nullptr) return 1;
        if (::setgid(gr->gr_gid) != 0) return 2;
    }
    if (user != nullptr) {
        const struct passwd *pw = ::getpwnam(user);
        if (pw == nullptr) return 3;
        if (::setuid(pw->pw_uid) != 0) return 4;
    }
    return 0;
}

void calexec_stripname(char *name, int32_t cut, int32_t strip_dir, int32_t strip_ext) noexcept {
    if (name == nullptr) return;
    if (cut == 1) {
        char *blank = std::strchr(name, ' ');
        if (blank != nullptr) *blank = '\0';
    }
    if (strip_dir != 0) {
        const char *slash = std::strrchr(name, '/');
        if (slash != nullptr) std::memmove(name, slash + 1, std::strlen(slash + 1) + 1);
    }
    if (strip_ext == 1) {
        char *dot = std::strrchr(name, '.');
        if (dot != nullptr) *dot = '\0';
    }
}

char *printable(char *text) noexcept {
    if (text == nullptr) return text;
    // The locale's own table on purpose: names are shown on the terminal of
    // that locale, where its printable upper bytes display as they are.
    for (char *p = text; *p; ++p)
        if (!std::isprint(static_cast<unsigned char>(*p))) *p = '?';
    return text;
}

int32_t calexec_get_process_info(calexec_proc *records, int32_t capacity) noexcept {
    if (records == nullptr || capacity <= 0) return 0;
    DIR *dir = ::opendir("/proc");
    if (dir == nullptr) return 0;
    int32_t count = 0;
    while (count < capacity) {
        const struct dirent *e = ::readdir(dir);
        if (e == nullptr) break;
        if (!orv::ascii_isdigit(static_cast<unsigned char>(e->d_name[0]))) continue;
        const int pid = std::atoi(e->d_name);
        char stat[4096];
        if (!read_stat(pid, stat)) continue;
        const char *open = std::strchr(stat, '(');
        const char *close = open ? std::strrchr(open, ')') : nullptr;
        if (open == nullptr) continue;
        if (close == nullptr) close = open + std::strlen(open);
        calexec_proc &r = records[count];
        r.pid = pid;
        const size_t len = std::min<size_t>(static_cast<size_t>(close - open - 1), sizeof r.name - 1);
        std::memcpy(r.name, open + 1, len);
        r.name[len] = '\0';
        ++count;
    }
    ::closedir(dir);
    return count;
}

int32_t calexec_getproclist(calexec_proclist **list) noexcept {
    if (list == nullptr) return 0;
    *list = static_cast<calexec_proclist *>(std::calloc(1, sizeof **list));
    if (*list == nullptr) return 0;
    (*list)->records = static_cast<calexec_proc *>(std::calloc(CALEXEC_PROCLIST_SIZE, sizeof(calexec_proc)));
    if ((*list)->records != nullptr)
        (*list)->count = static_cast<uint32_t>(calexec_get_process_info((*list)->records, CALEXEC_PROCLIST_SIZE));
    return 0;
}

void calexec_freeproclist(calexec_proclist **list) noexcept {
    if (list == nullptr || *list == nullptr) return;
    std::free((*list)->records);
    std::free(*list);
    *list = nullptr;
}

int32_t calexec_getfirstproc(calexec_proclist *list, int32_t *pid, char **name) noexcept {
    if (list == nullptr || list->count == 0) return -1;
    list->cursor = 0;
    return hand_out(list, 0, pid, name);
}

int32_t calexec_getnextproc(calexec_proclist *list, int32_t *pid, char **name) noexcept {
    if (list == nullptr || list->cursor >= list->count) return -1;
    if (++list->cursor == list->count) return -1;
    return hand_out(list, list->cursor, pid, name);
}

int32_t calexec_getproc(calexec_proclist *list, int32_t *pid, char **name) noexcept {
    return list == nullptr ? -1 : hand_out(list, list->cursor, pid, name);
}

int32_t calexec_findproc(int32_t *pid, const char *name) noexcept {
    if (pid == nullptr || name == nullptr) return -1;
    calexec_proclist *list = nullptr;
    calexec_getproclist(&list);
    int32_t result = -1;
    int32_t p;
    char *n;
    for (int32_t r = calexec_getfirstproc(list, &p, &n); r == 0; r = calexec_getnextproc(list, &p, &n)) {
        calexec_stripname(n, 1, 1, 0);
        if (orv::ascii_iequal(n, name)) {
            *pid = p;
            result = 0;
            break;
        }
    }
    calexec_freeproclist(&list);
    return result;
}

int32_t calexec_stopped(int32_t pid) noexcept { return ::kill(pid, 0) != 0 && errno == ESRCH ? 1 : 0; }

int32_t calexec_stoppid(int32_t pid, int32_t kill, int32_t group) noexcept {
    const int sig = kill == 1 ? SIGKILL : SIGTERM;
    if (group == 1) {
        // The group of pid 1, or of pid 0 or below, means far more processes
        // than one service.
        const int r = pid > 1 ? ::kill(-pid, sig) : (errno = EINVAL, -1);
        if (r != 0 && errno != ESRCH) {
            zolog(0, 3, "kill error=%d (%s) for group pid=-(%d).", errno, std::strerror(errno), pid);
            return -1;
        }
        return 0;
    }
    const int r = pid > 0 ? ::kill(pid, sig) : (errno = EINVAL, -1);
    if (r != 0 && errno != ESRCH) {
        zolog(0, 3, "kill error=%d (%s) for pid=%d.", errno, std::strerror(errno), pid);
        return -1;
    }
    return 0;
}

int32_t calexec_stoponce(int32_t pid, int32_t kill, int32_t group) noexcept {
    zolog(0, 7, "calexec_stoponce: calling calexec_stoppid(), bGroup=PR_TRUE: pid=%d.", pid);
    return calexec_stoppid(pid, kill, group);
}

int32_t calexec_stop_pid(const char *service, int32_t pid, int32_t limit, int32_t kill) noexcept {
    const int32_t group = service != nullptr && std::strcmp(service, "store") == 0 ? 0 : 1;
    const int32_t r = calexec_stoponce(pid, kill, group);
    if (r != 0) return r;
    int32_t next = stoptime_next();
    int32_t elapsed = 0;
    for (;;) {
        if (calexec_stopped(pid)) return 0;
        if (calservice_wait_sleep(limit, &elapsed) == -1) return -1;
        if (elapsed < next) continue;
        if (calexec_stoponce(pid, kill, group) == -1) return -1;
        next = elapsed + stoptime_next();
    }
}

int32_t calexec_forcestop_pid(int32_t pid) noexcept {
    calexec_stoponce(pid, 1, 1);
    sleep_seconds(2);
    return calexec_stopped(pid) == 1 ? 0 : -1;
}

int32_t calexec_stop_children(const char *service, int32_t limit, int32_t kill) noexcept {
    (void)limit;
    int *pids = nullptr;
    if (config_readpidfile_list(service, &pids, "child_process") < 1) return 0;
    const auto give_up = std::chrono::steady_clock::now() + kChildRoundsBound;
    int rounds = 0;
    for (bool found = true; found; kill = 1) {
        found = false;
        ++rounds;
        for (int *p = pids; *p != 0; ++p) {
            zolog(0, 7, "calexec_stop_children: checking if children are still running for service=%s pid=%d.", service,
                  *p);
            if (calexec_stopped(*p)) continue;
            found = true;
            zolog(0, 7,
                  "calexec_stop_children: trying to stop children by calling calexec_stoppid(): service=%s pid=%d.",
                  service, *p);
            calexec_stoppid(*p, kill, 0);
        }
        if (found && std::chrono::steady_clock::now() >= give_up) {
            zolog(0, 4, "calexec_stop_children: service=%s: children still running after %d rounds; giving up", service,
                  rounds);
            break;
        }
        if (found) ::sched_yield();
    }
    std::free(pids);
    return 0;
}

int32_t calexec_stop(const char *service, int32_t pid, int32_t limit, int32_t kill) noexcept {
    int32_t result = calexec_stop_pid(service, pid, limit, kill);
    if (result == -1) {
        kill = 1;
        result = calexec_forcestop_pid(pid);
    }
    calexec_stop_children(service, limit, 0);
    if (result == 0 && kill == 1) calservice_set_stopped(service);
    if (result == -1) zolog(0, 3, "stop failed, service %s (%d) still running after %d seconds", service, pid, limit);
    return result;
}

int32_t calservice_stop(const char *service, int32_t pid, int32_t limit) noexcept {
    int32_t result = 0;
    int32_t forced = 0;
    if (calservice_signal(service, "stop") != 0) result = -1;
    int32_t next = stoptime_next();
    int32_t elapsed = 0;
    while (calexec_stopped(pid) == 0) {
        if (calservice_wait_sleep(limit, &elapsed) == -1) {
            result = -1;
            break;
        }
        if (elapsed < next) continue;
        if (calservice_signal(service, "stop") != 0) {
            result = -1;
            break;
        }
        next = elapsed + stoptime_next();
    }
    if (result == -1) {
        forced = 1;
        calexec_stoponce(pid, 1, 1);
        sleep_seconds(2);
        if (calexec_stopped(pid) == 1) result = 0;
    }
    if (result == 0 && forced == 1) calservice_set_stopped(service);
    if (result == -1) zolog(0, 3, "signal failed, service %s (%d) still running after %d seconds", service, pid, limit);
    return result;
}

}  // extern "C"
