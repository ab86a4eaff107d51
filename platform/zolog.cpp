// The logging facility: formatted, escaped one-line records to a rolling
// file shared by several processes, to the system log or to standard error,
// with a per-handle level threshold.
#include "orvutil/platform/zolog.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "orv/ascii.hpp"
#include "orv/fsutil.hpp"

namespace {

constexpr const char *kSeverityNames[8] = {"Emergency", "Alert",  "Critical",    "Error",
                                           "Warning",   "Notice", "Information", "Debug"};
constexpr const char kSyslogDir[] = "syslog:";

// Thresholds of the first handles plus one, readable without the lock so
// that a filtered-out call costs a few loads. 0 marks a free slot (such a
// handle writes to handle 0, so handle 0's threshold applies) or, for
// handle 0, a facility not set up yet.
constexpr int kFastHandles = 256;
std::atomic<signed char> g_threshold[kFastHandles];
std::atomic<bool> g_hooked{false};
int g_pid = getpid();  // getpid() is a system call; a forked child sets its own
std::atomic<zolog_clock_hook> g_clock{nullptr};
std::atomic<zolog_statfs_hook> g_statfs{nullptr};

struct timespec now_ts() {
    struct timespec ts;
    if (zolog_clock_hook clock = g_clock.load(std::memory_order_acquire)) {
        clock(&ts);
    } else {
        clock_gettime(CLOCK_REALTIME, &ts);
    }
    return ts;
}

// The head of the lock file, mapped by every process writing the log. Its
// mutex (process-shared and robust: a holder that dies hands it on) keeps
// writes and rolls apart without a system call when nobody waits; rolls also
// take the file's flock exclusively, so that two processes never roll at
// once. Everything after the magic is read and written under the mutex.
//
// The current file is known by its device and inode and a generation number
// that changes with them: a process whose descriptor belongs to an older
// generation reopens before it writes, which tells every process of a roll
// without a system call. Each change bumps the generation first, so a holder
// that dies half-way leaves at worst a needless reopen.
struct SharedState {
    uint32_t magic;
    uint32_t generation;
    long long last_roll;  // microseconds since the epoch of the newest rolled file's name
    pthread_mutex_t mutex;
    unsigned long long dev, ino;  // the current file; 0: to be opened
    long long size;               // its size, kept by the writers
    long long looked;             // CLOCK_MONOTONIC nanoseconds of the last stat() of its path; 0: look now
};
constexpr uint32_t kSharedMagic = 0x6f726c32;  // "orl2"

// How long an outside tool's move or deletion of the current file can go
// unnoticed: the path is looked at before a write once this much has passed
// since any process of the log last looked.
constexpr long long kLookInterval = 1000000;  // nanoseconds

long long monotonic_ns() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

struct LogHandle {
    std::string service;
    std::string process;
    std::string facility = "General";
    std::string logdir;
    int threshold = 5;  // Notice
    long rollovertime = 86400;
    long expirytime = 604800;
    long maxlogfilesize = 2097152;
    long maxlogfiles = 10;
    long maxlogsize = 20971520;
    long minfreediskspace = 5242880;
    long flushinterval = 60;
    long buffersize = 0;

    int fd = -1;
    int lock_fd = -1;
    struct SharedState *shared = nullptr;  // the lock file, mapped
    uint32_t generation = 0;               // the shared generation fd belongs to
    time_t file_start = 0;                 // stamp of the current file's first record; 0: empty
    std::string buffer;
    long buffered = 0;  // records in buffer
    time_t last_write = 0;
    time_t space_checked = 0;  // last free-space reading, seconds
    bool space_low = false;
    long dropped = 0;
    bool cleaned = false;  // rolled files checked since the log was opened
    int syslog_fd = -1;

    bool to_syslog() const { return logdir == kSyslogDir; }
    std::string name() const { return !process.empty() ? process : !service.empty() ? service : std::string("orv"); }
    std::string file_path() const { return logdir + "/" + name() + ".log"; }
    std::string path;  // file_path() while the file is open
    // What a record holds between its stamp and its message, for the level
    // and pid it was made for (level -1: to be made).
    std::string prefix;
    int prefix_level = -1;
    int prefix_pid = 0;
    void close_file() {
        if (fd >= 0) ::close(fd);
        if (lock_fd >= 0) ::close(lock_fd);
        if (shared != nullptr) ::munmap(shared, sizeof *shared);
        shared = nullptr;
        if (syslog_fd >= 0) ::close(syslog_fd);
        fd = lock_fd = syslog_fd = -1;
        path.clear();
        cleaned = false;
    }
};

struct LogState {
    std::mutex mutex;
    std::map<int, LogHandle> handles{{0, LogHandle{}}};
    int next_handle = 1;
    int options = 0;
    zolog_hook hook = nullptr;
    void *hook_arg = nullptr;
    std::string syslog_path = "/dev/log";
    std::string scratch;  // the record being formatted
};

LogState &state() {
    static LogState *s = [] {
        auto *created = new LogState;  // never destroyed: logging works during exit
        g_threshold[0].store(5 + 1);
        g_pid = getpid();
        // A fork keeps the lock out of another thread's hands, and the child
        // lets go of what belongs to the parent: its buffered records (the
        // parent writes them) and the lock file's open description, which
        // flock() would otherwise share with the parent.
        pthread_atfork([] { state().mutex.lock(); }, [] { state().mutex.unlock(); },
                       [] {
                           g_pid = getpid();
                           LogState &st = state();
                           for (auto &entry : st.handles) {
                               entry.second.buffer.clear();
                               entry.second.buffered = 0;
                               entry.second.close_file();
                           }
                           st.mutex.unlock();
                       });
        std::atexit([] { zolog_flush(); });
        return created;
    }();
    return *s;
}

void publish_threshold(int id, int threshold) {
    if (id >= 0 && id < kFastHandles) g_threshold[id].store(static_cast<signed char>(threshold + 1));
}

bool parse_long(const char *text, long *out) {
    if (text == nullptr || *text == '\0') return false;
    errno = 0;
    char *end = nullptr;
    long v = std::strtol(text, &end, 10);
    if (errno != 0 || end == text) return false;
    while (orv::ascii_isblank(static_cast<unsigned char>(*end))) ++end;
    if (*end != '\0') return false;
    *out = v;
    return true;
}

bool parse_level(const char *text, int *out) {
    if (text == nullptr) return false;
    for (int i = 0; i < 8; ++i) {
        if (orv::ascii_iequal(text, kSeverityNames[i])) {
            *out = i;
            return true;
        }
    }
    // Short and syslog-style spellings.
    static const struct {
        const char *name;
        int level;
    } aliases[] = {{"emerg", 0}, {"crit", 2}, {"err", 3}, {"warn", 4}, {"info", 6}};
    for (const auto &alias : aliases) {
        if (orv::ascii_iequal(text, alias.name)) {
            *out = alias.level;
            return true;
        }
    }
    long v;
    if (parse_long(text, &v) && v >= 0 && v <= 7) {
        *out = static_cast<int>(v);
        return true;
    }
    return false;
}

int syslog_facility(const std::string &name) {
    static const struct {
        const char *name;
        int code;
    } facilities[] = {
        {"kern", LOG_KERN},     {"user", LOG_USER},     {"mail", LOG_MAIL},         {"daemon", LOG_DAEMON},
        {"auth", LOG_AUTH},     {"syslog", LOG_SYSLOG}, {"lpr", LOG_LPR},           {"news", LOG_NEWS},
        {"uucp", LOG_UUCP},     {"cron", LOG_CRON},     {"authpriv", LOG_AUTHPRIV}, {"ftp", LOG_FTP},
        {"local0", LOG_LOCAL0}, {"local1", LOG_LOCAL1}, {"local2", LOG_LOCAL2},     {"local3", LOG_LOCAL3},
        {"local4", LOG_LOCAL4}, {"local5", LOG_LOCAL5}, {"local6", LOG_LOCAL6},     {"local7", LOG_LOCAL7},
    };
    for (const auto &f : facilities)
        if (orv::ascii_iequal(name, f.name)) return f.code;
    return LOG_USER;
}

// Applies one option to a handle; false for an unknown name or a bad value.
bool apply_option(LogHandle &h, const char *name, const char *value) {
    struct NumericOption {
        const char *name;
        long LogHandle::*field;
    };
    static const NumericOption numeric[] = {
        {"rollovertime", &LogHandle::rollovertime},     {"expirytime", &LogHandle::expirytime},
        {"maxlogfilesize", &LogHandle::maxlogfilesize}, {"maxlogfiles", &LogHandle::maxlogfiles},
        {"maxlogsize", &LogHandle::maxlogsize},         {"minfreeddiskspace", &LogHandle::minfreediskspace},
        {"flushinterval", &LogHandle::flushinterval},   {"buffersize", &LogHandle::buffersize},
    };
    if (orv::ascii_iequal(name, "loglevel")) return parse_level(value, &h.threshold);
    if (orv::ascii_iequal(name, "logfacility")) {
        h.facility = value != nullptr ? value : "";
        return true;
    }
    // The names that make up the file's path: a change reopens the file
    // under the new name with the next record.
    static const struct {
        const char *name;
        std::string LogHandle::*field;
    } naming[] = {
        {"logdir", &LogHandle::logdir}, {"servicename", &LogHandle::service}, {"processname", &LogHandle::process}};
    for (const auto &option : naming) {
        if (!orv::ascii_iequal(name, option.name)) continue;
        const std::string text = value != nullptr ? value : "";
        if (h.*option.field != text) {
            h.*option.field = text;
            h.close_file();
        }
        return true;
    }
    for (const auto &option : numeric) {
        if (orv::ascii_iequal(name, option.name)) {
            long v;
            if (!parse_long(value, &v) || v < 0) return false;
            h.*option.field = v;
            return true;
        }
    }
    return false;
}

void append_escaped(std::string &out, const char *message) {
    const unsigned char *p = reinterpret_cast<const unsigned char *>(message);
    for (;;) {
        // Plain bytes go over in runs.
        const unsigned char *run = p;
        while (*p != 0 && !orv::ascii_iscntrl(*p)) ++p;
        out.append(reinterpret_cast<const char *>(run), static_cast<size_t>(p - run));
        if (*p == 0) return;
        switch (*p) {
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default: {
                const char hex[] = {'\\', 'x', orv::kHexLower[*p >> 4], orv::kHexLower[*p & 15]};
                out.append(hex, sizeof hex);
            }
        }
        ++p;
    }
}

// "2026-11-21T04:59:58.123Z"; the part up to the second is kept per thread.
void append_stamp(std::string &out, const struct timespec &now) {
    thread_local time_t cached_second = -1;
    thread_local char cached[80];
    if (now.tv_sec != cached_second) {
        struct tm utc;
        gmtime_r(&now.tv_sec, &utc);
        std::snprintf(cached, sizeof cached, "%04d-%02d-%02dT%02d:%02d:%02d.", utc.tm_year + 1900, utc.tm_mon + 1,
                      utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
        cached_second = now.tv_sec;
    }
    const int ms = static_cast<int>(now.tv_nsec / 1000000);
    out += cached;
    out += static_cast<char>('0' + ms / 100);
    out += static_cast<char>('0' + ms / 10 % 10);
    out += static_cast<char>('0' + ms % 10);
    out += 'Z';
}

// Reads back the stamp a record starts with; 0 when it does not read.
time_t parse_stamp(const char *text, size_t n) {
    struct tm tm {};
    if (n < 19 || std::sscanf(text, "%4d-%2d-%2dT%2d:%2d:%2d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                              &tm.tm_min, &tm.tm_sec) != 6)
        return 0;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    return timegm(&tm);
}

const std::string &record_prefix(LogHandle &h, int level) {
    if (h.prefix_level == level && h.prefix_pid == g_pid) return h.prefix;
    std::string &prefix = h.prefix;
    const int facility = level >> 3;
    prefix.assign(1, ' ');
    prefix += kSeverityNames[level & 7];
    prefix += ' ';
    if (facility != 0) {
        prefix.append("facility").append(std::to_string(facility));
    } else {
        prefix += h.facility.empty() ? "General" : h.facility.c_str();
    }
    prefix += ' ';
    prefix += h.service.empty() ? "-" : h.service.c_str();
    prefix += '/';
    prefix += h.process.empty() ? "-" : h.process.c_str();
    prefix.append("[").append(std::to_string(g_pid)).append("] ");
    h.prefix_level = level;
    h.prefix_pid = g_pid;
    return prefix;
}

void format_record(std::string &record, LogHandle &h, int level, const struct timespec &now, const char *message) {
    record.clear();
    append_stamp(record, now);
    record += record_prefix(h, level);
    append_escaped(record, message);
    record += '\n';
}

// ---- the system log ----

void send_syslog(LogState &s, LogHandle &h, int level, const struct timespec &now, const char *message) {
    struct tm local;
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
    // Appended piece by piece: GCC 12 at -O3 sees a false overlap in the
    // "<" + std::string chain (-Wrestrict).
    std::string datagram = "<";
    datagram += std::to_string(syslog_facility(h.facility) | (level & 7));
    datagram += ">";
    datagram += stamp;
    datagram += " ";
    datagram += h.name();
    datagram += "[";
    datagram += std::to_string(g_pid);
    datagram += "]: ";
    append_escaped(datagram, message);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (h.syslog_fd < 0) {
            h.syslog_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            struct sockaddr_un addr {};
            addr.sun_family = AF_UNIX;
            if (h.syslog_fd < 0 || s.syslog_path.size() >= sizeof addr.sun_path) return;
            std::memcpy(addr.sun_path, s.syslog_path.c_str(), s.syslog_path.size() + 1);
            if (::connect(h.syslog_fd, reinterpret_cast<struct sockaddr *>(&addr), sizeof addr) != 0) {
                h.close_file();
                return;
            }
        }
        if (::send(h.syslog_fd, datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0) return;
        // The collector restarted: connect again once.
        h.close_file();
    }
}

// ---- files ----

struct RolledFile {
    std::string path;
    time_t when;
    off_t size;
};

// "YYYYMMDDTHHMMSS.uuuuuuZ" after "<name>.log."; its time, or -1.
time_t rolled_stamp(const char *suffix) {
    if (std::strlen(suffix) != 23 || suffix[8] != 'T' || suffix[15] != '.' || suffix[22] != 'Z') return -1;
    for (int i = 0; i < 22; ++i)
        if (i != 8 && i != 15 && !orv::ascii_isdigit(static_cast<unsigned char>(suffix[i]))) return -1;
    struct tm tm {};
    std::sscanf(suffix, "%4d%2d%2dT%2d%2d%2d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour, &tm.tm_min,
                &tm.tm_sec);
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    return timegm(&tm);
}

// The rolled files of a log, oldest first.
std::vector<RolledFile> rolled_files(const LogHandle &h) {
    std::vector<RolledFile> files;
    DIR *dir = ::opendir(h.logdir.c_str());
    if (dir == nullptr) return files;
    const std::string prefix = h.name() + ".log.";
    while (struct dirent *e = ::readdir(dir)) {
        if (std::strncmp(e->d_name, prefix.c_str(), prefix.size()) != 0) continue;
        const time_t when = rolled_stamp(e->d_name + prefix.size());
        struct stat st;
        const std::string path = h.logdir + "/" + e->d_name;
        if (when < 0 || ::stat(path.c_str(), &st) != 0) continue;
        files.push_back({path, when, st.st_size});
    }
    ::closedir(dir);
    std::sort(files.begin(), files.end(), [](const RolledFile &a, const RolledFile &b) { return a.path < b.path; });
    return files;
}

// Deletes the rolled files that expiry, "maxlogfiles" and "maxlogsize" no
// longer allow, oldest first. Called with the lock file held exclusively.
void clean_rolled(LogHandle &h, time_t now) {
    h.cleaned = true;
    if (h.expirytime == 0 && h.maxlogfiles == 0 && h.maxlogsize == 0) return;  // nothing to list for
    std::vector<RolledFile> files = rolled_files(h);
    struct stat st;
    const off_t current = ::stat(h.path.c_str(), &st) == 0 ? st.st_size : 0;
    off_t total = current;
    for (const auto &f : files) total += f.size;
    // Room for the current file to grow to its own limit.
    const off_t reserve = h.maxlogfilesize > 0 ? std::max<off_t>(h.maxlogfilesize - current, 0) : 0;
    size_t first = 0;
    auto must_go = [&](const RolledFile &f) {
        if (h.expirytime > 0 && now - f.when > h.expirytime) return true;
        if (h.maxlogfiles > 0 && files.size() - first > static_cast<size_t>(h.maxlogfiles)) return true;
        return h.maxlogsize > 0 && total + reserve > h.maxlogsize;
    };
    while (first < files.size() && must_go(files[first])) {
        ::unlink(files[first].path.c_str());
        total -= files[first].size;
        ++first;
    }
}

// Maps the lock file's shared state, setting it up under the flock when the
// file is new (or was left by something else).
bool map_shared(LogHandle &h) {
    if (::flock(h.lock_fd, LOCK_EX) != 0) return false;
    struct stat st;
    bool ok = ::fstat(h.lock_fd, &st) == 0 && (st.st_size >= static_cast<off_t>(sizeof(SharedState)) ||
                                               ::ftruncate(h.lock_fd, sizeof(SharedState)) == 0);
    void *map =
        ok ? ::mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, h.lock_fd, 0) : MAP_FAILED;
    if (map != MAP_FAILED) {
        h.shared = static_cast<SharedState *>(map);
        if (h.shared->magic != kSharedMagic) {
            pthread_mutexattr_t attr;
            pthread_mutexattr_init(&attr);
            pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
            pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
            // The kernel then hands the mutex to the next waiter itself. With
            // the plain kind an unlock only wakes one waiter, and a waiter
            // killed before it retries takes that wake-up with it: the others
            // sleep on though the mutex is free. A kernel without it gets the
            // plain kind.
            pthread_mutexattr_setprotocol(&attr, PTHREAD_PRIO_INHERIT);
            if (pthread_mutex_init(&h.shared->mutex, &attr) != 0) {
                pthread_mutexattr_setprotocol(&attr, PTHREAD_PRIO_NONE);
                pthread_mutex_init(&h.shared->mutex, &attr);
            }
            pthread_mutexattr_destroy(&attr);
            h.shared->generation = 0;
            h.shared->last_roll = 0;
            h.shared->dev = h.shared->ino = 0;
            h.shared->size = h.shared->looked = 0;
            __atomic_store_n(&h.shared->magic, kSharedMagic, __ATOMIC_RELEASE);
        }
    }
    ::flock(h.lock_fd, LOCK_UN);
    return map != MAP_FAILED;
}

bool lock_shared(LogHandle &h) {
    const int rc = pthread_mutex_lock(&h.shared->mutex);
    // A writer died holding it: what it left is whole (one write, or a
    // rename), so carry on, after a look at the path in case the size it
    // kept missed its last write.
    if (rc == EOWNERDEAD) {
        h.shared->looked = 0;
        return pthread_mutex_consistent(&h.shared->mutex) == 0;
    }
    return rc == 0;
}

void unlock_shared(LogHandle &h) { pthread_mutex_unlock(&h.shared->mutex); }

// Runs fn with the flock held exclusively and the shared mutex held, coming
// from and returning to the shared mutex alone (flock first: the order every
// process keeps).
template <typename Fn>
bool exclusively(LogHandle &h, Fn fn) {
    unlock_shared(h);
    if (::flock(h.lock_fd, LOCK_EX) != 0) return lock_shared(h);
    const bool locked = lock_shared(h);
    if (locked) fn();
    if (locked) unlock_shared(h);
    ::flock(h.lock_fd, LOCK_UN);
    return lock_shared(h);
}

// Opens the lock file and maps its shared state; the current file is opened
// by the first write.
bool open_file(LogHandle &h) {
    if (h.shared != nullptr) return true;
    if (h.logdir.empty()) return false;
    h.close_file();
    orv::make_dirs(h.logdir);
    h.path = h.file_path();
    h.lock_fd = ::open((h.path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (h.lock_fd < 0 || !map_shared(h)) {
        h.close_file();
        return false;
    }
    return true;
}

// The current file is no longer the one the processes know: each reopens.
void forget_current(SharedState &shared) {
    ++shared.generation;
    shared.dev = shared.ino = 0;
    shared.size = 0;
}

// (Re)opens the data file by path and makes it the current file of every
// process; the caller holds the shared mutex.
bool reopen_data(LogHandle &h) {
    if (h.fd >= 0) ::close(h.fd);
    // Readable too, for the first record's stamp.
    h.fd = ::open(h.path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    struct stat st;
    if (h.fd < 0 || ::fstat(h.fd, &st) != 0) return false;
    SharedState &shared = *h.shared;
    if (st.st_dev != shared.dev || st.st_ino != shared.ino) {
        // First to open it since a roll, or another file took its place.
        forget_current(shared);
        shared.dev = st.st_dev;
        shared.ino = st.st_ino;
        shared.size = st.st_size;
    }
    h.generation = shared.generation;
    h.file_start = 0;
    return true;
}

// Looks at the path at most once per kLookInterval for the whole log: a
// file moved or deleted by an outside tool is dropped by every process, and
// the kept size follows what others (a truncating tool) did to the file.
void look_at_path(LogHandle &h) {
    SharedState &shared = *h.shared;
    if (shared.dev == 0 && shared.ino == 0) return;  // nothing open to compare with
    const long long now = monotonic_ns();
    // A stamp from the future comes from before a reboot.
    if (shared.looked != 0 && now - shared.looked < kLookInterval && now >= shared.looked) return;
    shared.looked = now;
    struct stat st;
    if (::stat(h.path.c_str(), &st) != 0 || st.st_dev != shared.dev || st.st_ino != shared.ino) {
        forget_current(shared);
    } else {
        shared.size = st.st_size;
    }
}

// The age of a file counts from its first record, whoever wrote it.
void read_file_start(LogHandle &h) {
    char head[32];
    const ssize_t n = ::pread(h.fd, head, sizeof head - 1, 0);
    if (n <= 0) return;
    head[n] = '\0';  // sscanf measures its input
    h.file_start = parse_stamp(head, static_cast<size_t>(n));
}

bool roll_due(const LogHandle &h, off_t size, size_t len, time_t now) {
    if (size == 0) return false;
    if (h.maxlogfilesize > 0 && size + static_cast<off_t>(len) > h.maxlogfilesize) return true;
    return h.rollovertime > 0 && h.file_start != 0 && now - h.file_start >= h.rollovertime;
}

// Rolls the current file unless another process did it first. The caller
// holds the lock file exclusively.
void roll(LogHandle &h, size_t len, const struct timespec &now) {
    SharedState &shared = *h.shared;
    if (h.generation != shared.generation) return;  // rolled already
    struct stat st;
    const std::string &path = h.path;
    if (::stat(path.c_str(), &st) != 0 || st.st_dev != shared.dev || st.st_ino != shared.ino) {
        forget_current(shared);  // moved away from outside
        return;
    }
    shared.size = st.st_size;
    if (!roll_due(h, st.st_size, len, now.tv_sec)) return;
    // Before the rename: a roller that dies after it must not leave the
    // others writing into the rolled file.
    forget_current(shared);
    // A rolled name must sort after every earlier one, even when the clock
    // stands still or steps back: the lock file keeps the last roll's time.
    // The name tells the moment of the rename itself, after every record
    // the file holds.
    const struct timespec renamed = now_ts();
    long long when = static_cast<long long>(renamed.tv_sec) * 1000000 + renamed.tv_nsec / 1000;
    when = std::max(when, h.shared->last_roll + 1);
    for (;; ++when) {
        const time_t seconds = static_cast<time_t>(when / 1000000);
        struct tm utc;
        gmtime_r(&seconds, &utc);
        char suffix[96];
        std::snprintf(suffix, sizeof suffix, ".%04d%02d%02dT%02d%02d%02d.%06lldZ", utc.tm_year + 1900, utc.tm_mon + 1,
                      utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, when % 1000000);
        const std::string target = path + suffix;
        // Only the lock holder renames, so a name free now stays free.
        if (::access(target.c_str(), F_OK) == 0) continue;
        if (::rename(path.c_str(), target.c_str()) != 0) return;
        break;
    }
    shared.last_roll = when;
    clean_rolled(h, now.tv_sec);
}

// Below "minfreeddiskspace": the log stops. Read at most once a second.
bool space_low(LogHandle &h, time_t now) {
    if (h.minfreediskspace <= 0) return false;
    if (h.space_checked == now && h.space_checked != 0) return h.space_low;
    h.space_checked = now;
    unsigned long long free_bytes = 0;
    int rc;
    if (zolog_statfs_hook fn = g_statfs.load(std::memory_order_acquire)) {
        rc = fn(h.logdir.c_str(), &free_bytes);
    } else {
        struct statvfs vfs;
        rc = ::statvfs(h.logdir.c_str(), &vfs);
        if (rc == 0) free_bytes = static_cast<unsigned long long>(vfs.f_bavail) * vfs.f_frsize;
    }
    const bool low = rc == 0 && free_bytes < static_cast<unsigned long long>(h.minfreediskspace);
    if (low && !h.space_low) {
        const std::string note = "zolog: free space under " + h.logdir + " is below " +
                                 std::to_string(h.minfreediskspace) + " bytes; " + h.name() +
                                 ".log stops until it returns\n";
        orv::write_all(STDERR_FILENO, note.data(), note.size());
    }
    h.space_low = low;
    return low;
}

// Writes whole records as one write(2) into the current file, rolling first
// when due. false when the log cannot be written (the caller falls back to
// standard error).
bool write_records(LogHandle &h, const std::string &data, long count) {
    if (data.empty()) return true;
    if (!open_file(h)) return false;
    const struct timespec now = now_ts();
    if (space_low(h, now.tv_sec)) {
        h.dropped += count;
        return true;
    }
    std::string resumed;
    const std::string *out = &data;
    if (h.dropped > 0) {
        std::string note = std::to_string(h.dropped) + " records dropped while free disk space was below " +
                           std::to_string(h.minfreediskspace) + " bytes";
        format_record(resumed, h, 4, now, note.c_str());
        resumed += data;
        out = &resumed;
    }
    if (!lock_shared(h)) return false;
    bool ok = false, locked = true;
    for (int attempt = 0; attempt < 100 && locked; ++attempt) {
        look_at_path(h);
        SharedState &shared = *h.shared;
        if (h.fd < 0 || h.generation != shared.generation) {
            if (!reopen_data(h)) break;
            // First use of this file here: apply expiry and limits, like a roll.
            if (!h.cleaned) locked = exclusively(h, [&] { clean_rolled(h, now.tv_sec); });
            continue;
        }
        const off_t size = static_cast<off_t>(shared.size);
        if (size > 0 && h.file_start == 0) read_file_start(h);
        if (roll_due(h, size, out->size(), now.tv_sec)) {
            // The locks were let go on the way: look again after.
            locked = exclusively(h, [&] { roll(h, out->size(), now); });
            continue;
        }
        if (size == 0) h.file_start = now.tv_sec;
        ok = orv::write_all(h.fd, out->data(), out->size()) == 0;
        if (ok) {
            shared.size += static_cast<long long>(out->size());
        } else {
            shared.looked = 0;  // part of it may be in: read the size back
        }
        break;
    }
    if (locked) unlock_shared(h);
    if (ok) h.dropped = 0;
    h.last_write = now.tv_sec;
    return ok;
}

void flush_handle(LogHandle &h) {
    if (h.buffer.empty()) return;
    if (!write_records(h, h.buffer, h.buffered)) orv::write_all(STDERR_FILENO, h.buffer.data(), h.buffer.size());
    h.buffer.clear();
    h.buffered = 0;
}

void flush_all(LogState &s) {
    for (auto &entry : s.handles) flush_handle(entry.second);
}

void emit(LogState &s, LogHandle &h, int level, const char *message) {
    const struct timespec now = now_ts();
    if (h.to_syslog()) {
        send_syslog(s, h, level, now, message);
        return;
    }
    std::string &record = s.scratch;
    format_record(record, h, level, now, message);
    if (h.logdir.empty()) {
        orv::write_all(STDERR_FILENO, record.data(), record.size());
        return;
    }
    if (!(s.options & ZOLOG_OPT_NOSTDERR)) orv::write_all(STDERR_FILENO, record.data(), record.size());
    if (h.buffersize > 0 && record.size() <= static_cast<size_t>(h.buffersize)) {
        if (h.buffer.size() + record.size() > static_cast<size_t>(h.buffersize)) flush_handle(h);
        h.buffer += record;
        ++h.buffered;
        if (h.last_write == 0) h.last_write = now.tv_sec;
        if (h.flushinterval > 0 && now.tv_sec - h.last_write >= h.flushinterval) flush_handle(h);
        return;
    }
    flush_handle(h);  // a record too large for the buffer keeps its place
    if (!write_records(h, record, 1) && (s.options & ZOLOG_OPT_NOSTDERR))
        orv::write_all(STDERR_FILENO, record.data(), record.size());
}

// Everything after the threshold, kept out of zolog so that a filtered-out
// call pays for no more than the check.
__attribute__((noinline)) void log_record(int handle, int level, const char *format, va_list args) noexcept {
    const int saved_errno = errno;
    try {
        char small[1024];
        std::string large;
        const char *message = small;
        va_list again;
        va_copy(again, args);
        int n = std::vsnprintf(small, sizeof small, format, args);
        if (n < 0) {
            message = format;
        } else if (static_cast<size_t>(n) >= sizeof small) {
            large.resize(static_cast<size_t>(n) + 1);
            errno = saved_errno;  // for %m
            std::vsnprintf(large.data(), large.size(), format, again);
            message = large.c_str();
        }
        va_end(again);

        LogState &s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.hook != nullptr) s.hook(s.hook_arg, handle, level, message);
        auto it = s.handles.find(handle);
        if (it == s.handles.end()) it = s.handles.find(0);
        if ((level & 7) <= it->second.threshold) emit(s, it->second, level, message);
    } catch (...) {
        // Logging must never take the caller down; a record lost to memory
        // exhaustion is the lesser harm.
    }
    errno = saved_errno;
}

}  // namespace

extern "C" {

void zolog(int handle, int level, const char *format, ...) noexcept {
    if (format == nullptr) return;
    if (!g_hooked.load(std::memory_order_relaxed) && static_cast<unsigned>(handle) < kFastHandles) {
        signed char limit = g_threshold[handle].load(std::memory_order_relaxed);
        if (limit == 0) limit = g_threshold[0].load(std::memory_order_relaxed);
        if (limit != 0 && (level & 7) >= limit) return;
    }
    va_list args;
    va_start(args, format);
    log_record(handle, level, format, args);
    va_end(args);
}

int zolog_open(const char *servicename, const char *processname) noexcept {
    try {
        LogState &s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        LogHandle h;
        h.service = servicename != nullptr ? servicename : "";
        h.process = processname != nullptr ? processname : "";
        const int id = s.next_handle++;
        publish_threshold(id, h.threshold);
        s.handles.emplace(id, std::move(h));
        return id;
    } catch (...) {
        return 0;
    }
}

void zolog_close(int handle) noexcept {
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = s.handles.find(handle);
    if (it == s.handles.end()) return;
    try {
        flush_handle(it->second);
    } catch (...) {
    }
    if (handle == 0) return;
    it->second.close_file();
    s.handles.erase(it);
    publish_threshold(handle, -1);
}

int zolog_config(int handle, const char *const *pairs) noexcept {
    if (pairs == nullptr) return -1;
    try {
        LogState &s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        auto it = s.handles.find(handle);
        if (it == s.handles.end()) return -1;
        // Records buffered so far belong to the log as it was configured.
        flush_handle(it->second);
        int result = 0;
        it->second.prefix_level = -1;
        for (size_t i = 0; pairs[i] != nullptr || pairs[i + 1] != nullptr; i += 2) {
            if (pairs[i] == nullptr || !apply_option(it->second, pairs[i], pairs[i + 1])) result = -1;
        }
        publish_threshold(handle, it->second.threshold);
        return result;
    } catch (...) {
        return -1;
    }
}

int zolog_setoptions(int options) noexcept {
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    const int previous = s.options;
    s.options = options;
    return previous;
}

void zolog_flush(void) noexcept {
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    try {
        flush_all(s);
    } catch (...) {
    }
    for (auto &entry : s.handles)
        if (entry.second.fd >= 0) fsync(entry.second.fd);
}

void zolog_set_hook(zolog_hook hook, void *arg) noexcept {
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.hook = hook;
    s.hook_arg = arg;
    g_hooked.store(hook != nullptr);
}

void zolog_set_clock(zolog_clock_hook clock) noexcept {
    state();
    g_clock.store(clock, std::memory_order_release);
}

void zolog_set_statfs(zolog_statfs_hook statfs_fn) noexcept {
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    g_statfs.store(statfs_fn, std::memory_order_release);
    // A new source of readings applies at once.
    for (auto &entry : s.handles) entry.second.space_checked = 0;
}

void zolog_set_syslog_path(const char *path) noexcept {
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    try {
        s.syslog_path = path != nullptr ? path : "/dev/log";
    } catch (...) {
    }
    for (auto &entry : s.handles)
        if (entry.second.to_syslog()) entry.second.close_file();
}

}  // extern "C"
