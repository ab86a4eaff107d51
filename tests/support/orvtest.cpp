#include "orvtest.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "orvutil/platform/zolog.h"

namespace orvtest {

TempDir::TempDir() {
    const char *base = std::getenv("TMPDIR");
    std::string templ = std::string(base != nullptr && *base ? base : "/tmp") + "/orvtest.XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = buf.data();
}

TempDir::~TempDir() {
    std::error_code ec;
    // Make everything writable again so that tests of read-only files clean up.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                     ec);
    }
    std::filesystem::remove_all(path_, ec);
}

std::string TempDir::file(const std::string &name) const { return path_ + "/" + name; }

ScopedEnv::ScopedEnv(const char *name, const char *value) : name_(name) {
    const char *old = std::getenv(name);
    had_old_ = old != nullptr;
    if (had_old_) old_ = old;
    if (value != nullptr)
        setenv(name, value, 1);
    else
        unsetenv(name);
    if (name_ == "TZ") tzset();
}

ScopedEnv::~ScopedEnv() {
    if (had_old_)
        setenv(name_.c_str(), old_.c_str(), 1);
    else
        unsetenv(name_.c_str());
    if (name_ == "TZ") tzset();
}

LogCapture::LogCapture() { zolog_set_hook(&LogCapture::hook, this); }
LogCapture::~LogCapture() { zolog_set_hook(nullptr, nullptr); }

void LogCapture::hook(void *arg, int handle, int level, const char *message) {
    auto *self = static_cast<LogCapture *>(arg);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->records_.push_back({handle, level, message});
}

std::vector<LogRecord> LogCapture::records() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

bool LogCapture::contains(int level, const std::string &text) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &r : records_)
        if (r.level == level && r.message.find(text) != std::string::npos) return true;
    return false;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void write_file(const std::string &path, const std::string &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

bool file_exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

OutputCapture::OutputCapture() : out_(start(STDOUT_FILENO)), err_(start(STDERR_FILENO)) {}

OutputCapture::~OutputCapture() {
    stop(err_);
    stop(out_);
}

std::string OutputCapture::out() const { return text(out_); }
std::string OutputCapture::err() const { return text(err_); }

OutputCapture::Redirect OutputCapture::start(int fd) {
    std::fflush(nullptr);
    char name[] = "/tmp/orvcapture.XXXXXX";
    const int file = mkstemp(name);
    if (file < 0) throw std::runtime_error("mkstemp failed");
    unlink(name);
    const int saved = dup(fd);
    if (saved < 0 || dup2(file, fd) < 0) throw std::runtime_error("cannot redirect a descriptor");
    return Redirect{fd, saved, file};
}

std::string OutputCapture::text(const Redirect &r) {
    std::fflush(nullptr);
    std::string all;
    char buf[4096];
    for (off_t at = 0;;) {
        const ssize_t n = pread(r.file, buf, sizeof buf, at);
        if (n <= 0) break;
        all.append(buf, static_cast<size_t>(n));
        at += n;
    }
    return all;
}

void OutputCapture::stop(const Redirect &r) {
    std::fflush(nullptr);
    dup2(r.saved, r.fd);
    close(r.saved);
    close(r.file);
}

}  // namespace orvtest
