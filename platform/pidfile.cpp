// Service pid and state files: atomic replacement under a directory lock,
// start times from /proc, and service manager notifications.
#include "orvutil/platform/pidfile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <prerror.h>

#include "orv/ascii.hpp"
#include "orv/fsutil.hpp"
#include "orvutil/platform/config.h"
#include "orvutil/platform/zolog.h"

namespace {

constexpr size_t kMaxFile = 64 * 1024;
constexpr size_t kMaxName = 200;

struct Tagged {
    std::string tag;
    int pid;
    unsigned long long start;
};

struct PidFile {
    int pid = 0;
    unsigned long long start = 0;
    std::string state;
    std::vector<Tagged> tagged;
};

// Closes a descriptor on every path.
struct Fd {
    int fd = -1;
    explicit Fd(int f) : fd(f) {}
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
};

bool valid_service(const char *name) {
    if (name == nullptr) return false;
    const std::string_view s(name);
    if (s.empty() || s.size() > kMaxName || s == "." || s == "..") return false;
    for (unsigned char c : s)
        if (!orv::ascii_isprint(c) || c == '/') return false;
    return true;
}

// States and tags are single words: they are fields of a line.
bool valid_word(const char *word) {
    if (word == nullptr || *word == '\0' || std::strlen(word) >= CONFIG_PIDFILE_STATE_SIZE) return false;
    for (const char *p = word; *p; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (!orv::ascii_isprint(c) || c == ' ') return false;
    }
    return true;
}

std::string piddir() {
    config_cache *conf = config_getdefaultcache();
    std::string dir = config_get_string(conf, "local.piddir", "run");
    if (!dir.empty() && dir[0] == '/') return dir;
    return std::string(config_get_string(conf, "local.instancedir", ".")) + "/" + dir;
}

bool parse_number(std::string_view text, unsigned long long max, unsigned long long *out) {
    if (text.empty() || text.size() > 20) return false;
    unsigned long long v = 0;
    for (char c : text) {
        if (!orv::ascii_isdigit(static_cast<unsigned char>(c))) return false;
        const unsigned long long d = static_cast<unsigned long long>(c - '0');
        if (v > (max - d) / 10) return false;
        v = v * 10 + d;
    }
    *out = v;
    return true;
}

std::vector<std::string_view> split(std::string_view line) {
    std::vector<std::string_view> words;
    size_t at = 0;
    while (at <= line.size()) {
        size_t end = line.find(' ', at);
        if (end == std::string_view::npos) end = line.size();
        words.push_back(line.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

// A pid and a start time: "1234 8812345".
bool parse_pid(const std::vector<std::string_view> &w, int *pid, unsigned long long *start) {
    unsigned long long p = 0;
    if (w.size() != 3 || !parse_number(w[1], INT_MAX, &p) || p == 0 || !parse_number(w[2], ULLONG_MAX, start))
        return false;
    *pid = static_cast<int>(p);
    return true;
}

bool parse(std::string_view text, PidFile *f) {
    if (text.empty() || text.back() != '\n') return false;
    bool have_pid = false;
    while (!text.empty()) {
        const size_t nl = text.find('\n');
        const std::string_view line = text.substr(0, nl);
        text.remove_prefix(nl + 1);
        const auto w = split(line);
        for (auto word : w)
            if (word.empty()) return false;
        if (w[0] == "pid") {
            if (have_pid || !parse_pid(w, &f->pid, &f->start)) return false;
            have_pid = true;
        } else if (w[0] == "state") {
            if (w.size() != 2 || w[1].size() >= CONFIG_PIDFILE_STATE_SIZE) return false;
            f->state = w[1];
        } else {
            Tagged t{std::string(w[0]), 0, 0};
            if (!parse_pid(w, &t.pid, &t.start)) return false;
            f->tagged.push_back(std::move(t));
        }
    }
    return have_pid;
}

std::string format(const PidFile &f) {
    std::string out = "pid " + std::to_string(f.pid) + " " + std::to_string(f.start) + "\n";
    if (!f.state.empty()) out += "state " + f.state + "\n";
    for (const Tagged &t : f.tagged) out += t.tag + " " + std::to_string(t.pid) + " " + std::to_string(t.start) + "\n";
    return out;
}

int pr_error(int err) {
    switch (err) {
        case ENOENT:
        case ENOTDIR: return PR_FILE_NOT_FOUND_ERROR;
        case ELOOP: return PR_LOOP_ERROR;
        case EACCES:
        case EPERM: return PR_NO_ACCESS_RIGHTS_ERROR;
        case ENOMEM: return PR_OUT_OF_MEMORY_ERROR;
        case EFBIG: return PR_FILE_TOO_BIG_ERROR;
        case EINVAL: return PR_INVALID_ARGUMENT_ERROR;
        default: return PR_IO_ERROR;
    }
}

// Reads and parses "<service>.pid" in the directory: 0 or an errno value
// (EFBIG for an oversized file, EBADMSG for a malformed one).
int load(int dirfd, const std::string &name, PidFile *f) {
    Fd fd(::openat(dirfd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (fd.fd < 0) return errno;
    struct stat st;
    if (::fstat(fd.fd, &st) != 0) return errno;
    if (!S_ISREG(st.st_mode)) return EBADMSG;
    std::string text(kMaxFile + 1, '\0');
    size_t got = 0;
    while (got < text.size()) {
        const ssize_t n = ::read(fd.fd, text.data() + got, text.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    if (got > kMaxFile) return EFBIG;
    text.resize(got);
    return parse(text, f) ? 0 : EBADMSG;
}

int open_dir(const std::string &dir) { return ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

// Replaces the file whole: a reader sees the old or the new text.
int store(int dirfd, const std::string &name, const PidFile &f) {
    const std::string tmp = name + ".tmp";
    const std::string text = format(f);
    {
        Fd fd(::openat(dirfd, tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (fd.fd < 0) return -1;
        if (orv::write_all(fd.fd, text.data(), text.size()) != 0 || ::fsync(fd.fd) != 0) {
            const int err = errno;
            ::unlinkat(dirfd, tmp.c_str(), 0);
            errno = err;
            return -1;
        }
    }
    if (::renameat(dirfd, tmp.c_str(), dirfd, name.c_str()) != 0) return -1;
    ::fsync(dirfd);  // the rename itself survives a crash
    return 0;
}

// Runs change on the service's file under the directory lock, then stores
// it. create: start from an empty record when there is no usable file.
template <typename Change>
int update(const char *service, bool create, Change change) {
    if (!valid_service(service)) {
        errno = EINVAL;
        return -1;
    }
    try {
        const std::string dir = piddir();
        if (create) orv::make_dirs(dir);
        Fd dirfd(open_dir(dir));
        if (dirfd.fd < 0) return -1;
        while (::flock(dirfd.fd, LOCK_EX) != 0)
            if (errno != EINTR) return -1;
        const std::string name = std::string(service) + ".pid";
        PidFile f;
        const int err = load(dirfd.fd, name, &f);
        // A service starting over an unreadable record (left by a crash, or
        // a link planted in its place) replaces it; an append never does.
        const bool replaceable = err == ENOENT || err == ELOOP || err == EBADMSG || err == EFBIG;
        if (err != 0 && !(create && replaceable)) {
            errno = err;
            return -1;
        }
        change(f);
        return store(dirfd.fd, name, f);  // the lock goes with the descriptor
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

// Field 22 of /proc/<pid>/stat, or 0 when it cannot be read.
unsigned long long start_time(int pid) {
    std::string text;
    if (!orv::read_file("/proc/" + std::to_string(pid) + "/stat", &text)) return 0;
    const size_t paren = text.rfind(')');
    if (paren == std::string::npos) return 0;
    const auto w = split(std::string_view(text).substr(paren + 2));
    unsigned long long start = 0;
    // Fields after the name start at field 3 (the state).
    return w.size() > 19 && parse_number(w[19], ULLONG_MAX, &start) ? start : 0;
}

bool alive(int pid) { return ::kill(pid, 0) == 0 || errno == EPERM; }

// A pid that now belongs to a younger process than the one recorded.
bool reused(int pid, unsigned long long recorded) {
    if (recorded == 0) return false;
    const unsigned long long now = start_time(pid);
    return now != 0 && now != recorded;
}

void notify(const char *message) {
    const char *path = std::getenv("NOTIFY_SOCKET");
    if (path == nullptr || *path == '\0') return;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const size_t len = std::strlen(path);
    if ((path[0] != '/' && path[0] != '@') || len >= sizeof addr.sun_path) {
        zolog(0, 4, "NOTIFY_SOCKET %s is not a socket path", path);
        return;
    }
    std::memcpy(addr.sun_path, path, len);
    if (path[0] == '@') addr.sun_path[0] = '\0';
    Fd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto addr_len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + len);
    if (fd.fd < 0 || ::sendto(fd.fd, message, std::strlen(message), MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr *>(&addr), addr_len) < 0)
        zolog(0, 4, "cannot notify %s: %m", path);
}

int read_record(const char *service, PidFile *f) {
    if (!valid_service(service)) return PR_INVALID_ARGUMENT_ERROR;
    try {
        Fd dirfd(open_dir(piddir()));
        if (dirfd.fd < 0) return pr_error(errno);
        const int err = load(dirfd.fd, std::string(service) + ".pid", f);
        return err == 0 ? 0 : err == EBADMSG ? PR_IO_ERROR : pr_error(err);
    } catch (const std::bad_alloc &) {
        return PR_OUT_OF_MEMORY_ERROR;
    }
}

}  // namespace

extern "C" {

int config_readpidfile(const char *service, int *pid, char *state) noexcept {
    if (pid == nullptr) return PR_INVALID_ARGUMENT_ERROR;
    PidFile f;
    const int err = read_record(service, &f);
    if (err != 0) return err;
    *pid = f.pid;
    if (state != nullptr) std::memcpy(state, f.state.c_str(), f.state.size() + 1);
    return 0;
}

int config_writepidfile(const char *service, const char *state) noexcept {
    if (!valid_word(state)) {
        errno = EINVAL;
        return -1;
    }
    const int pid = static_cast<int>(::getpid());
    const int r = update(service, true, [&](PidFile &f) {
        f.pid = pid;
        f.start = start_time(pid);
        f.state = state;
    });
    if (r == 0 && std::strcmp(state, "ready") == 0) notify("READY=1");
    return r;
}

int config_appendpidfile(const char *service, const char *tag) noexcept {
    if (!valid_word(tag) || std::strcmp(tag, "pid") == 0 || std::strcmp(tag, "state") == 0) {
        errno = EINVAL;
        return -1;
    }
    const int pid = static_cast<int>(::getpid());
    return update(service, false, [&](PidFile &f) {
        const unsigned long long start = start_time(pid);
        for (Tagged &t : f.tagged) {
            if (t.tag == tag && t.pid == pid) {
                t.start = start;
                return;
            }
        }
        f.tagged.push_back({tag, pid, start});
    });
}

int config_removepidfile(const char *service) noexcept {
    if (!valid_service(service)) {
        errno = EINVAL;
        return -1;
    }
    try {
        const std::string dir = piddir();
        Fd dirfd(open_dir(dir));
        if (dirfd.fd < 0) return errno == ENOENT ? 0 : -1;
        while (::flock(dirfd.fd, LOCK_EX) != 0)
            if (errno != EINTR) return -1;
        if (::unlinkat(dirfd.fd, (std::string(service) + ".pid").c_str(), 0) != 0 && errno != ENOENT) return -1;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
    notify("STOPPING=1");
    return 0;
}

int config_readpidfile_list(const char *service, int **pids, const char *tag) noexcept {
    if (pids == nullptr) return -1;
    *pids = nullptr;
    if (tag == nullptr) return -1;
    PidFile f;
    if (read_record(service, &f) != 0) return -1;
    std::vector<int> found;
    try {
        for (const Tagged &t : f.tagged)
            if (t.tag == tag && !reused(t.pid, t.start)) found.push_back(t.pid);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    if (found.empty()) return 0;
    int *list = static_cast<int *>(std::calloc(found.size() + 1, sizeof(int)));
    if (list == nullptr) return -1;
    std::memcpy(list, found.data(), found.size() * sizeof(int));
    *pids = list;
    return static_cast<int>(found.size());
}

int config_pidfile_stale(const char *service) noexcept {
    PidFile f;
    if (read_record(service, &f) != 0) return -1;
    return !alive(f.pid) || reused(f.pid, f.start) ? 1 : 0;
}

char *config_piddir(void) noexcept {
    try {
        return ::strdup(piddir().c_str());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

}  // extern "C"
