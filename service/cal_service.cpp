// Service state over the pid files, the poll step, the refresh signal and
// the start-up helpers of a server process.
#include "orvutil/cal_service.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <prerror.h>
#include <prio.h>
#include <prprf.h>
#include <prsystem.h>

#include "orvutil/platform/config.h"
#include "orvutil/platform/pidfile.h"
#include "orvutil/platform/sys.h"
#include "orvutil/platform/zolog.h"

namespace {

constexpr size_t kPath = CALSERVICE_PATH_SIZE;

// The last '/' or '\\' of text, or nullptr.
char *last_separator(char *text) {
    char *cut = nullptr;
    for (char *p = text; *p; ++p)
        if (*p == '/' || *p == '\\') cut = p;
    return cut;
}

// argv0 cut at its last separator into buf; false when it has none (buf then
// holds argv0 whole).
bool program_dir(const char *argv0, char (&buf)[kPath]) {
    std::snprintf(buf, sizeof buf, "%s", argv0);
    char *cut = last_separator(buf);
    if (cut == nullptr) return false;
    *cut = '\0';
    return true;
}

const char *error_text(int code) { return PR_ErrorToString(code, PR_LANGUAGE_I_DEFAULT); }

}  // namespace

extern "C" {

int32_t calservice_set_started(const char *service) noexcept { return config_writepidfile(service, "init"); }

int32_t calservice_set_ready(const char *service) noexcept { return config_writepidfile(service, "ready"); }

int32_t calservice_set_stopped(const char *service) noexcept { return config_removepidfile(service); }

int32_t calservice_append_child_pid(const char *service) noexcept {
    return config_appendpidfile(service, "child_process");
}

int32_t calservice_get_state(const char *service, int32_t *pid, int32_t *state) noexcept {
    char text[CONFIG_PIDFILE_STATE_SIZE] = {};
    int file_pid = 0;
    int32_t result = 0;
    int32_t st;
    if (config_readpidfile(service, &file_pid, text) != 0) {
        file_pid = 0;
        st = CALSERVICE_STATE_STOPPED;
        result = -1;
    } else if (std::strcmp(text, "init") == 0) {
        st = CALSERVICE_STATE_INIT;
    } else if (std::strcmp(text, "ready") == 0) {
        st = CALSERVICE_STATE_READY;
    } else {
        zolog(0, 4, "%s has an unknown state %s\n", service, text);
        st = CALSERVICE_STATE_UNKNOWN;
    }
    if (pid != nullptr) *pid = file_pid;
    if (state != nullptr) *state = st;
    return result;
}

int32_t calservice_wait_sleep(int32_t limit, int32_t *elapsed) noexcept {
    // An interval below one second would never let the elapsed count pass
    // the limit: a wait would never end.
    int interval = config_get_int(config_getdefaultcache(), "service.admin.sleeptime", 1);
    if (interval < 1) interval = 1;
    if (*elapsed > limit) return -1;
    sleep_seconds(static_cast<unsigned>(interval));
    *elapsed = *elapsed > INT32_MAX - interval ? INT32_MAX : *elapsed + interval;
    return 0;
}

int32_t calservice_wait_ready(const char *service, int32_t limit, int32_t *pid) noexcept {
    int32_t elapsed = 0;
    for (;;) {
        char text[CONFIG_PIDFILE_STATE_SIZE] = {};
        int file_pid = 0;
        if (config_readpidfile(service, &file_pid, text) == 0) {
            if (pid != nullptr) *pid = file_pid;
            if (std::strcmp(text, "ready") == 0) return 0;
        }
        if (calservice_wait_sleep(limit, &elapsed) == -1) return -1;
    }
}

int32_t calservice_wait_stopped(const char *service, int32_t limit) noexcept {
    int32_t elapsed = 0;
    int pid = 0;
    while (config_readpidfile(service, &pid, nullptr) == 0)
        if (calservice_wait_sleep(limit, &elapsed) == -1) return -1;
    return 0;
}

int32_t calservice_signal(const char *service, const char *command) noexcept {
    if (command == nullptr || std::strcmp(command, "refresh") != 0) return 1;
    int pid = 0;
    const int err = config_readpidfile(service, &pid, nullptr);
    if (err != 0) {
        zolog(0, 3, "service=%s, cmd=%s, result=readpidfile error %s", service ? service : "", command,
              error_text(err));
        return 1;
    }
    // The group of pid 1 would be every process.
    if (pid <= 1) errno = EINVAL;
    if (pid <= 1 || (::kill(-pid, SIGHUP) != 0 && errno != ESRCH)) {
        zolog(0, 3, "service=%s, cmd=%s, result=sigsend error %s", service, command, std::strerror(errno));
        return 1;
    }
    zolog(0, 37, "service=%s, cmd=%s, result=OK", service, command);
    return 0;
}

int32_t calservice_check_id_permissions(const char *path) noexcept {
    const int fd = path != nullptr ? ::open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0) {
        std::fprintf(stderr, "Fatal error: Could not get file to compute permissions\n");
        return 70;
    }
    struct stat st;
    const int r = ::fstat(fd, &st);
    ::close(fd);
    if (r != 0) {
        std::fprintf(stderr, "Fatal error: Could not get file stat to compute permissions\n");
        return 70;
    }
    const struct group *gr = ::getgrgid(st.st_gid);
    if (::setgid(st.st_gid) != 0) {
        std::fprintf(stderr, "Fatal error: Could not setgid to calendar group\n");
        if (gr != nullptr)
            std::fprintf(stderr, "             Server needs to be run with group permissions of group %s\n",
                         gr->gr_name);
        return 70;
    }
    const struct passwd *pw = ::getpwuid(st.st_uid);
    if (::setuid(st.st_uid) != 0) {
        std::fprintf(stderr, "Fatal error: Cannot setuid to the calendar user\n");
        if (pw != nullptr)
            std::fprintf(stderr, "             Server needs to be run with user permissions of user %s\n", pw->pw_name);
        return 70;
    }
    if (::geteuid() != 0) return 0;
    std::fprintf(stderr, "Fatal error: must run command as the calendar server user... root not allowed\n");
    if (pw != nullptr)
        std::fprintf(stderr, "             Server needs to be run with user permissions of user %s\n", pw->pw_name);
    return 64;
}

void calservice_changedir_lib(const char *argv0) noexcept {
    if (argv0 == nullptr || std::strlen(argv0) <= 1) return;
    char dir[kPath];
    if (!program_dir(argv0, dir)) std::snprintf(dir, sizeof dir, "./");
    char lib[kPath];
    const char sep = PR_GetDirectorySeparator();
    PR_snprintf(lib, sizeof lib, "%s%c..%clib", dir, sep, sep);
    if (::chdir(lib) != 0) {
        // A program outside an installation has no library directory.
    }
}

int32_t calservice_setup_serverconf(const char *argv0, char *out, const char *conf) noexcept {
    if (out == nullptr) return -1;
    const char sep = PR_GetDirectorySeparator();
    if (conf != nullptr && conf[0] == sep) return std::snprintf(out, kPath, "%s", conf);
    if (argv0 == nullptr || std::strlen(argv0) <= 1) return std::snprintf(out, kPath, "config/orv.conf");
    char dir[kPath];
    const bool has_dir = program_dir(argv0, dir);
    std::snprintf(out, kPath, "%s", dir);
    if (::chdir(out) != 0) {
        // Kept where it is: the path is then built from the current directory.
    }
    if (!has_dir) return std::snprintf(out, kPath, "config/orv.conf");
    char cwd[kPath];
    if (::getcwd(cwd, sizeof cwd) == nullptr) cwd[0] = '\0';
    if (conf != nullptr) return std::snprintf(out, kPath, "%s%c%s%c%s", cwd, sep, "config", sep, conf);
    return std::snprintf(out, kPath, "%s%c%s", cwd, sep, "config/orv.conf");
}

void calservice_exit_fatal(const char *message, int32_t status) noexcept {
    std::fprintf(stderr, "Fatal error %d: %s\n", status, message ? message : "");
    zolog(0, 2, "Fatal error %d: %s", status, message ? message : "");
    service_exit(status);
    std::exit(status);
}

}  // extern "C"
