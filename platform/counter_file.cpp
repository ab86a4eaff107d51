// Counter object files: layout, checks on mapping, crash-safe creation, and
// the liveness of slot owners.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "counter_file.hpp"
#include "orv/fsutil.hpp"

namespace orv::counter {
namespace {

bool terminated(const char *field, size_t size) { return std::memchr(field, '\0', size) != nullptr; }

// Bounds first, then whether every name and kind reads: a reader trusts
// nothing in the file it has not checked against the file's size.
int check(const Mapping &m, const struct stat &st) {
    if (m.size < sizeof(FileHeader))
        return m.size >= sizeof(uint64_t) && m.header->magic == kMagic ? COUNTER_ECORRUPT : COUNTER_EFOREIGN;
    const FileHeader &h = *m.header;
    if (h.magic != kMagic) return COUNTER_EFOREIGN;
    if (h.version != kVersion || h.header_size != sizeof(FileHeader)) return COUNTER_EFOREIGN;
    if (h.ncounters == 0 || h.ncounters > COUNTER_MAX_COUNTERS || h.nslots == 0 || h.nslots > COUNTER_MAX_SLOTS)
        return COUNTER_ECORRUPT;
    const Layout l = layout_for(h.ncounters, h.nslots);
    if (h.file_size != static_cast<uint64_t>(st.st_size) || l.size > m.size) return COUNTER_ECORRUPT;
    if (!terminated(h.object, sizeof h.object)) return COUNTER_ECORRUPT;
    const auto *descs = reinterpret_cast<const CounterDesc *>(static_cast<const uint8_t *>(m.base) + l.descs);
    for (uint32_t i = 0; i < h.ncounters; ++i) {
        const CounterDesc &d = descs[i];
        if (!terminated(d.name, sizeof d.name) || d.name[0] == '\0' || !terminated(d.help, sizeof d.help) ||
            d.kind > COUNTER_KIND_GAUGE)
            return COUNTER_ECORRUPT;
    }
    return 0;
}

uint64_t now_ns() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

void copy_name(char *field, size_t size, const std::string &text) {
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

}  // namespace

void Mapping::unmap() {
    if (base) ::munmap(base, size);
    *this = Mapping{};
}

int map_file(const std::string &path, bool writable, Mapping *m) {
    int fd = ::open(path.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return errno == ENOENT ? COUNTER_ENOTFOUND : COUNTER_EIO;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return COUNTER_EFOREIGN;
    }
    if (st.st_size < static_cast<off_t>(sizeof(uint64_t))) {
        ::close(fd);
        return st.st_size == 0 ? COUNTER_ECORRUPT : COUNTER_EFOREIGN;
    }
    Mapping n;
    n.size = static_cast<size_t>(st.st_size);
    n.base = ::mmap(nullptr, n.size, PROT_READ | (writable ? PROT_WRITE : 0), MAP_SHARED, fd, 0);
    ::close(fd);
    if (n.base == MAP_FAILED) return COUNTER_EIO;
    n.header = static_cast<FileHeader *>(n.base);
    if (int status = check(n, st); status != 0) {
        ::munmap(n.base, n.size);
        return status;
    }
    const Layout l = layout_for(n.header->ncounters, n.header->nslots);
    auto *base = static_cast<uint8_t *>(n.base);
    n.writable = writable;
    n.dev = st.st_dev;
    n.ino = st.st_ino;
    n.descs = reinterpret_cast<CounterDesc *>(base + l.descs);
    n.slots = reinterpret_cast<Slot *>(base + l.slots);
    n.values = base + l.values;
    n.row_stride = l.row_stride;
    *m = n;
    return 0;
}

int create_file(const std::string &dir, const std::string &path, const std::string &object,
                const std::vector<Desc> &descs, uint32_t nslots, int mode, bool replace, uint64_t generation_floor,
                Mapping *m, bool *exists) {
    *exists = false;
    const Layout l = layout_for(static_cast<uint32_t>(descs.size()), nslots);
    std::vector<uint8_t> head(l.slots + sizeof(Slot), 0);
    auto *h = reinterpret_cast<FileHeader *>(head.data());
    h->magic = kMagic;
    h->version = kVersion;
    h->header_size = sizeof(FileHeader);
    h->file_size = l.size;
    h->generation = std::max(generation_floor + 1, now_ns());
    h->ncounters = static_cast<uint32_t>(descs.size());
    h->nslots = nslots;
    copy_name(h->object, sizeof h->object, object);
    auto *d = reinterpret_cast<CounterDesc *>(head.data() + l.descs);
    for (const Desc &c : descs) {
        copy_name(d->name, sizeof d->name, c.name);
        copy_name(d->help, sizeof d->help, c.help);
        d->kind = c.kind;
        ++d;
    }
    // Slot 0 is the "global" instance: in use from the start, with no owner.
    auto *global = reinterpret_cast<Slot *>(head.data() + l.slots);
    global->state = kUsed;
    copy_name(global->name, sizeof global->name, "global");

    // Written whole before the rename: a crash before it leaves only the
    // temporary file, which no reader opens.
    const std::string temp = dir + "/." + object + ".cnt." + std::to_string(::getpid());
    int fd = ::open(temp.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode ? mode : 0644);
    if (fd < 0) return COUNTER_EIO;
    bool ok = ::ftruncate(fd, static_cast<off_t>(l.size)) == 0 && orv::write_all(fd, head.data(), head.size()) == 0;
    void *base = ok ? ::mmap(nullptr, l.size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
    struct stat st;
    ok = base != MAP_FAILED && ::fstat(fd, &st) == 0;
    ::close(fd);
    if (ok) {
        ok = replace ? ::rename(temp.c_str(), path.c_str()) == 0
                     : ::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0;
        *exists = !ok && !replace && errno == EEXIST;
    }
    if (!ok) {
        if (base != MAP_FAILED) ::munmap(base, l.size);
        ::unlink(temp.c_str());
        return *exists ? 0 : COUNTER_EIO;
    }
    Mapping n;
    n.base = base;
    n.size = l.size;
    n.writable = true;
    n.dev = st.st_dev;
    n.ino = st.st_ino;
    n.header = static_cast<FileHeader *>(base);
    n.descs = reinterpret_cast<CounterDesc *>(static_cast<uint8_t *>(base) + l.descs);
    n.slots = reinterpret_cast<Slot *>(static_cast<uint8_t *>(base) + l.slots);
    n.values = static_cast<uint8_t *>(base) + l.values;
    n.row_stride = l.row_stride;
    *m = n;
    return 0;
}

void remove_dead_temporaries(const std::string &dir, const std::string &object) {
    DIR *d = ::opendir(dir.c_str());
    if (!d) return;
    const std::string prefix = "." + object + ".cnt.";
    while (const dirent *e = ::readdir(d)) {
        if (std::strncmp(e->d_name, prefix.c_str(), prefix.size()) != 0) continue;
        const char *digits = e->d_name + prefix.size();
        char *end = nullptr;
        long pid = std::strtol(digits, &end, 10);
        if (*digits && !*end && pid > 0 && pid <= INT32_MAX && ::kill(static_cast<pid_t>(pid), 0) != 0 &&
            errno == ESRCH)
            ::unlinkat(::dirfd(d), e->d_name, 0);
    }
    ::closedir(d);
}

uint64_t process_start(pid_t pid) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    std::string text;
    if (!orv::read_file(path, &text)) return 0;
    // The name in parentheses may hold blanks and ')': fields count from the last ')'.
    size_t pos = text.rfind(')');
    if (pos == std::string::npos) return 0;
    // Field 22 (start time) is the 20th after the name.
    for (int field = 0; field < 20 && pos != std::string::npos; ++field) pos = text.find(' ', pos + 1);
    if (pos == std::string::npos) return 0;
    return std::strtoull(text.c_str() + pos + 1, nullptr, 10);
}

bool owner_alive(uint32_t pid, uint64_t start) {
    if (pid == 0) return true;  // no owner: never taken over
    if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) return false;
    const uint64_t now = process_start(static_cast<pid_t>(pid));
    // A zombie or a process we cannot read still counts as alive unless its
    // start time shows the pid was reused.
    return start == 0 || now == 0 || now == start;
}

}  // namespace orv::counter
