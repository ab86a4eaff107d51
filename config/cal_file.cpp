// File utilities: path conversion, copy, rename, delete, numbered names,
// recursive directory creation and deletion of directory contents.
#include "orvutil/cal_file.h"

#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include <prio.h>
#include <prprf.h>

#include "cal_fileio.hpp"
#include "orvutil/platform/zolog.h"

namespace {

constexpr PRInt32 kCopyChunk = 4096;
constexpr size_t kDeleteDirBuffer = 1024;

// "dir/name"; false for a NULL part or when memory runs out.
bool join(const char *dir, const char *name, std::string *out) noexcept {
    if (dir == nullptr || name == nullptr) return false;
    try {
        out->assign(dir);
        out->push_back('/');
        out->append(name);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool exists(const char *path) { return PR_Access(path, PR_ACCESS_EXISTS) == PR_SUCCESS; }

// True when both paths name the same existing file.
bool same_file(const char *a, const char *b) {
    struct stat sa, sb;
    return ::stat(a, &sa) == 0 && ::stat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

int mkdir_ok(const char *path) { return ::mkdir(path, 0777) == 0 || errno == EEXIST; }

void log_mkdir_failure(const char *path, int err) {
    errno = err;
    zolog(0, 3, "%s: Unable to create directory %s: %m", "UTIL", path);
}

template <typename Fn>
void for_each_visible_entry(const char *dir, Fn fn) {
    for (const std::string &name : orvcfg::list_dir(dir, static_cast<PRDirFlags>(PR_SKIP_BOTH | PR_SKIP_HIDDEN)))
        fn(name.c_str());
}

}  // namespace

namespace orvcfg {

std::vector<std::string> list_dir(const char *dir, PRDirFlags flags) noexcept {
    std::vector<std::string> names;
    PRDir *d = PR_OpenDir(dir);
    if (d == nullptr) return names;
    try {
        for (PRDirEntry *e; (e = PR_ReadDir(d, flags)) != nullptr;) names.emplace_back(e->name);
    } catch (const std::bad_alloc &) {
        // Work with the names listed so far.
    }
    PR_CloseDir(d);
    return names;
}

bool copy_bytes(PRFileDesc *in, PRFileDesc *out, PRInt64 size) noexcept {
    char buf[kCopyChunk];
    PRInt64 remaining = size;
    while (remaining > 0) {
        const PRInt32 want = remaining < kCopyChunk ? static_cast<PRInt32>(remaining) : kCopyChunk;
        const PRInt32 got = PR_Read(in, buf, want);
        if (got <= 0) return false;
        if (PR_Write(out, buf, got) != got) return false;
        remaining -= got;
    }
    return true;
}

}  // namespace orvcfg

extern "C" {

void calfile_ToLocalPath(char *path) noexcept { calfile_DosToUnixPath(path); }

void calfile_DosToUnixPath(char *path) noexcept {
    if (path == nullptr) return;
    if (path[0] != '\0' && path[1] == ':') std::memmove(path, path + 2, std::strlen(path + 2) + 1);
    for (char *p = path; *p; ++p)
        if (*p == '\\') *p = '/';
}

void calfile_UnixToDosPath(char *path) noexcept {
    if (path == nullptr) return;
    for (char *p = path; *p; ++p)
        if (*p == '/') *p = '\\';
}

int calfile_CopyFile(const char *source, const char *destination, int noOverwrite) noexcept {
    if (source == nullptr || destination == nullptr) return CALFILE_E_FAIL;
    if (noOverwrite && exists(destination)) return CALFILE_E_FAIL;
    PRFileInfo64 info;
    if (PR_GetFileInfo64(source, &info) != PR_SUCCESS || info.type != PR_FILE_FILE) return CALFILE_E_FAIL;
    if (same_file(source, destination)) return CALFILE_E_FAIL;
    PRFileDesc *in = PR_Open(source, PR_RDONLY, 0);
    if (in == nullptr) return CALFILE_E_FAIL;
    PRFileDesc *out = PR_Open(destination, PR_RDWR | PR_CREATE_FILE | PR_TRUNCATE, 0xfff);
    if (out == nullptr) {
        PR_Close(in);
        return CALFILE_E_FAIL;
    }
    const bool copied = orvcfg::copy_bytes(in, out, info.size);
    const bool closed_out = PR_Close(out) == PR_SUCCESS;
    PR_Close(in);
    return copied && closed_out ? CALFILE_OK : CALFILE_E_FAIL;
}

int calfile_CopySourceFile(const char *name, const char *fromDir, const char *toDir) noexcept {
    std::string from, to;
    if (!join(fromDir, name, &from) || !join(toDir, name, &to)) return CALFILE_E_FAIL;
    return calfile_CopyFile(from.c_str(), to.c_str(), 1);
}

int calfile_RenameFile(const char *oldPath, const char *newPath) noexcept {
    if (oldPath == nullptr || newPath == nullptr) return CALFILE_E_FAIL;
    if (!exists(newPath)) return PR_Rename(oldPath, newPath) == PR_SUCCESS ? CALFILE_OK : CALFILE_E_FAIL;

    // Save the target's content beside it, so that a failed rename can put
    // it back.
    std::string temp;
    try {
        const char *slash = std::strrchr(newPath, '/');
        if (slash != nullptr) temp.assign(newPath, static_cast<size_t>(slash - newPath) + 1);
        temp += "tempXXXXXX";
    } catch (const std::bad_alloc &) {
        return CALFILE_E_FAIL;
    }
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) return CALFILE_E_FAIL;
    ::close(fd);
    if (calfile_CopyFile(newPath, temp.c_str(), 0) != 0) {
        ::unlink(temp.c_str());
        return CALFILE_E_FAIL;
    }
    PR_Delete(newPath);
    const bool renamed = PR_Rename(oldPath, newPath) == PR_SUCCESS;
    if (!renamed) calfile_CopyFile(temp.c_str(), newPath, 0);
    PR_Delete(temp.c_str());
    return renamed ? CALFILE_OK : CALFILE_E_FAIL;
}

int calfile_RenameSourceFile(const char *name, const char *fromDir, const char *toDir) noexcept {
    std::string from, to;
    if (!join(fromDir, name, &from) || !join(toDir, name, &to)) return CALFILE_E_FAIL;
    return calfile_RenameFile(from.c_str(), to.c_str());
}

int calfile_DeleteFile(const char *path) noexcept {
    if (path == nullptr) return CALFILE_E_FAIL;
    return PR_Delete(path) == PR_SUCCESS ? CALFILE_OK : CALFILE_E_FAIL;
}

int calfile_DeleteSourceFile(const char *name, const char *dir) noexcept {
    std::string path;
    if (!join(dir, name, &path)) return CALFILE_E_FAIL;
    return calfile_DeleteFile(path.c_str());
}

int calfile_mktemp_filename(const char *prefix, const char *suffix, char *buffer, int size) noexcept {
    const size_t prefix_len = prefix != nullptr ? std::strlen(prefix) : 0;
    const size_t suffix_len = suffix != nullptr ? std::strlen(suffix) : 0;
    if (buffer == nullptr || size < 0 || prefix_len > INT_MAX || suffix_len > INT_MAX ||
        static_cast<size_t>(size) < 6 + prefix_len + suffix_len)
        return CALFILE_E_FAIL;
    char number[5];
    for (int n = 0;; ++n) {
        // A 5-byte field keeps at most four digits of n.
        if (PR_snprintf(number, sizeof number, "%i", n) == static_cast<PRUint32>(-1)) return CALFILE_E_FAIL;
        const PRUint32 written = PR_snprintf(buffer, static_cast<PRUint32>(size), "%s%s%s",
                                             prefix != nullptr ? prefix : "", number, suffix != nullptr ? suffix : "");
        if (written == static_cast<PRUint32>(-1)) return CALFILE_E_FAIL;
        if (!exists(buffer)) return 0;
        // The stop text has five digits and the field holds four, so only the
        // counter's own limit ends a search that finds nothing free.
        if (std::string_view(number) == "99999" || n == INT_MAX) return CALFILE_E_FAIL;
    }
}

int calfile_mkdir_recursive(char *path) noexcept {
    if (path == nullptr || *path == '\0') return CALFILE_E_FAIL;
    char *const limit = path[1] == ':' ? path + 2 : path;
    if (mkdir_ok(path)) return 0;

    // Backward: find the longest prefix that exists or can be made.
    char *p = path + std::strlen(path) - 1;
    for (; p > limit; --p) {
        if (*p != '/') continue;
        *p = '\0';
        const bool made = mkdir_ok(path);
        *p = '/';
        if (made) break;
    }
    // Forward: make the remaining levels in order.
    for (char *q = p + 1; *q; ++q) {
        if (*q != '/') continue;
        *q = '\0';
        if (!mkdir_ok(path)) {
            const int err = errno;
            struct stat st;
            if (::stat(path, &st) != 0) {
                *q = '/';
                log_mkdir_failure(path, err);
                return CALFILE_E_FAIL;
            }
        }
        *q = '/';
    }
    if (mkdir_ok(path)) return 0;
    const int err = errno;
    struct stat st;
    if (::stat(path, &st) == 0) return 0;
    log_mkdir_failure(path, err);
    return CALFILE_E_FAIL;
}

int calfile_delete_dir(const char *dir) noexcept {
    if (dir == nullptr) return 0;
    for_each_visible_entry(dir, [dir](const char *name) { calfile_DeleteSourceFile(name, dir); });
    PR_RmDir(dir);
    return 0;
}

int calfile_delete_dir_recursive(const char *dir) noexcept {
    if (dir == nullptr) return 0;
    for_each_visible_entry(dir, [dir](const char *name) {
        char path[kDeleteDirBuffer];
        const int n = std::snprintf(path, sizeof path, "%s/%s", dir, name);
        if (n < 0 || static_cast<size_t>(n) >= sizeof path) return;
        calfile_delete_dir(path);
    });
    PR_RmDir(dir);
    return 0;
}

}  // extern "C"
