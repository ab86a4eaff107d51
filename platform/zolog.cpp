// The logging facility: formatted, escaped one-line records to a file or to
// standard error, with a per-handle level threshold.
#include "orvutil/platform/zolog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

#include "orv/ascii.hpp"
#include "orv/fsutil.hpp"

namespace {

constexpr const char *kSeverityNames[8] = {"Emergency", "Alert",  "Critical",    "Error",
                                           "Warning",   "Notice", "Information", "Debug"};

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

    std::string file_path() const {
        const std::string &base = !process.empty() ? process : !service.empty() ? service : std::string("orv");
        return logdir + "/" + base + ".log";
    }
    void close_file() {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
};

struct LogState {
    std::mutex mutex;
    std::map<int, LogHandle> handles{{0, LogHandle{}}};
    int next_handle = 1;
    int options = 0;
    zolog_hook hook = nullptr;
    void *hook_arg = nullptr;
};

LogState &state() {
    static LogState *s = new LogState;  // never destroyed: logging works during exit
    return *s;
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
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(message); *p; ++p) {
        switch (*p) {
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (orv::ascii_iscntrl(*p)) {
                    out += "\\x";
                    out += orv::kHexLower[*p >> 4];
                    out += orv::kHexLower[*p & 15];
                } else {
                    out += static_cast<char>(*p);
                }
        }
    }
}

std::string format_record(const LogHandle &h, int level, const char *message) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc;
    gmtime_r(&now.tv_sec, &utc);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(now.tv_nsec / 1000000));
    const int facility = level >> 3;
    std::string record = stamp;
    record += ' ';
    record += kSeverityNames[level & 7];
    record += ' ';
    record += facility == 0 ? (h.facility.empty() ? std::string("General") : h.facility)
                            : "facility" + std::to_string(facility);
    record += ' ';
    record += h.service.empty() ? "-" : h.service;
    record += '/';
    record += h.process.empty() ? "-" : h.process;
    record += '[' + std::to_string(getpid()) + "] ";
    append_escaped(record, message);
    record += '\n';
    return record;
}

bool open_file(LogHandle &h) {
    if (h.fd >= 0) return true;
    if (h.logdir.empty()) return false;
    orv::make_dirs(h.logdir);
    h.fd = ::open(h.file_path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    return h.fd >= 0;
}

}  // namespace

extern "C" {

void zolog(int handle, int level, const char *format, ...) noexcept {
    if (format == nullptr) return;
    const int saved_errno = errno;
    try {
        char small[1024];
        std::string message;
        va_list args;
        va_start(args, format);
        errno = saved_errno;
        int n = std::vsnprintf(small, sizeof small, format, args);
        va_end(args);
        if (n < 0) {
            message = format;
        } else if (static_cast<size_t>(n) < sizeof small) {
            message.assign(small, static_cast<size_t>(n));
        } else {
            message.resize(static_cast<size_t>(n) + 1);
            va_start(args, format);
            errno = saved_errno;
            std::vsnprintf(message.data(), message.size(), format, args);
            va_end(args);
            message.resize(static_cast<size_t>(n));
        }

        LogState &s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.hook != nullptr) s.hook(s.hook_arg, handle, level, message.c_str());
        auto it = s.handles.find(handle);
        if (it == s.handles.end()) it = s.handles.find(0);
        LogHandle &h = it->second;
        if ((level & 7) > h.threshold) {
            errno = saved_errno;
            return;
        }
        const std::string record = format_record(h, level, message.c_str());
        const bool to_file = open_file(h);
        if (to_file) orv::write_all(h.fd, record.data(), record.size());
        if (!to_file || !(s.options & ZOLOG_OPT_NOSTDERR)) orv::write_all(STDERR_FILENO, record.data(), record.size());
    } catch (...) {
        // Logging must never take the caller down; a record lost to memory
        // exhaustion is the lesser harm.
    }
    errno = saved_errno;
}

int zolog_open(const char *servicename, const char *processname) noexcept {
    try {
        LogState &s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        LogHandle h;
        h.service = servicename != nullptr ? servicename : "";
        h.process = processname != nullptr ? processname : "";
        const int id = s.next_handle++;
        s.handles.emplace(id, std::move(h));
        return id;
    } catch (...) {
        return 0;
    }
}

void zolog_close(int handle) noexcept {
    if (handle == 0) return;
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = s.handles.find(handle);
    if (it == s.handles.end()) return;
    it->second.close_file();
    s.handles.erase(it);
}

int zolog_config(int handle, const char *const *pairs) noexcept {
    if (pairs == nullptr) return -1;
    try {
        LogState &s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        auto it = s.handles.find(handle);
        if (it == s.handles.end()) return -1;
        int result = 0;
        for (size_t i = 0; pairs[i] != nullptr || pairs[i + 1] != nullptr; i += 2) {
            if (pairs[i] == nullptr || !apply_option(it->second, pairs[i], pairs[i + 1])) result = -1;
        }
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
    for (auto &entry : s.handles)
        if (entry.second.fd >= 0) fsync(entry.second.fd);
}

void zolog_set_hook(zolog_hook hook, void *arg) noexcept {
    LogState &s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.hook = hook;
    s.hook_arg = arg;
}

}  // extern "C"
