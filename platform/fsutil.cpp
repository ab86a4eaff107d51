#include "orv/fsutil.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

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
