#include "orv/fsutil.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <vector>

#include "orvutil/platform/sys.h"

namespace orv {

int write_all(int fd, const void *buf, size_t n) {
    const char *p = static_cast<const char *>(buf);
    while (n > 0) {
        ssize_t w = ::write(fd, p, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (w == 0) {
            // A descriptor that accepts nothing would loop for ever.
            errno = EIO;
            return -1;
        }
        p += w;
        n -= static_cast<size_t>(w);
    }
    return 0;
}

bool make_dirs(const std::string &path) {
    struct stat st;
    if (path.empty()) return false;
    if (::stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    const size_t slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0) make_dirs(path.substr(0, slash));
    return ::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

std::string follow_links(const std::string &path) {
    std::string target = path;
    std::vector<char> buf(PATH_MAX);
    // Bounded as the kernel bounds link chains, so a loop ends.
    for (int hops = 0; hops < 40; ++hops) {
        const ssize_t n = ::readlink(target.c_str(), buf.data(), buf.size());
        if (n <= 0 || static_cast<size_t>(n) >= buf.size()) break;
        const std::string link(buf.data(), static_cast<size_t>(n));
        const size_t slash = target.rfind('/');
        target = link[0] == '/' || slash == std::string::npos ? link : target.substr(0, slash + 1) + link;
    }
    return target;
}

namespace {

// Owner and group of st where permitted, else its group alone where we
// belong to it; otherwise the replacement stays ours.
bool take_owner(int fd, const struct stat &st) {
    if (st.st_uid == ::geteuid() && st.st_gid == ::getegid()) return true;
    return ::fchown(fd, st.st_uid, st.st_gid) == 0 || ::fchown(fd, static_cast<uid_t>(-1), st.st_gid) == 0;
}

}  // namespace

int open_replacement(const std::string &temp, const std::string &target) {
    struct stat st;
    const bool existing = ::stat(target.c_str(), &st) == 0;
    ::unlink(temp.c_str());
    // Private until it carries the target's mode: the old content may be
    // readable by its owner only.
    const int fd = ::open(temp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, existing ? 0600 : 0666);
    if (fd < 0 || !existing) return fd;
    // The owner first: changing it clears set-id bits that fchmod restores.
    take_owner(fd, st);
    if (::fchmod(fd, st.st_mode & 07777) != 0) {
        const int err = errno;
        ::close(fd);
        ::unlink(temp.c_str());
        errno = err;
        return -1;
    }
    return fd;
}

int replace_file(const std::string &path, std::string_view data) {
    const std::string target = follow_links(path);
    const std::string temp = target + ".tmp." + std::to_string(thread_id());
    const int fd = open_replacement(temp, target);
    if (fd < 0) return -1;
    int result = write_all(fd, data.data(), data.size()) == 0 && ::fsync(fd) == 0 ? 0 : -1;
    int err = errno;
    if (::close(fd) != 0 && result == 0) {
        result = -1;
        err = errno;
    }
    if (result == 0 && ::rename(temp.c_str(), target.c_str()) != 0) {
        result = -1;
        err = errno;
    }
    if (result != 0) {
        ::unlink(temp.c_str());
        errno = err;
    }
    return result;
}

bool read_file(const std::string &path, std::string *out, struct stat *st) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat local;
    if (st == nullptr) st = &local;
    if (::fstat(fd, st) != 0) {
        ::close(fd);
        return false;
    }
    out->clear();
    // Sized from fstat, read until end of file: the file may grow or shrink
    // while it is read.
    if (S_ISREG(st->st_mode) && st->st_size > 0) out->reserve(static_cast<size_t>(st->st_size) + 1);
    char buf[65536];
    for (;;) {
        // Read straight into the string's spare room; past the expected size
        // through a buffer, so a file that grew is still read whole.
        const size_t room = out->capacity() - out->size();
        const size_t old = out->size();
        if (room > 0) out->resize(old + room);
        const ssize_t n = room > 0 ? ::read(fd, out->data() + old, room) : ::read(fd, buf, sizeof buf);
        if (room > 0) out->resize(old + static_cast<size_t>(n > 0 ? n : 0));
        if (n < 0) {
            if (errno == EINTR) continue;
            ::close(fd);
            return false;
        }
        if (n == 0) break;
        if (room == 0) out->append(buf, static_cast<size_t>(n));
    }
    ::close(fd);
    return true;
}

}  // namespace orv
