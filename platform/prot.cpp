// Buffered protocol output streams over a descriptor or a memory sink.
#include "orvutil/platform/prot.h"

#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "orv/fsutil.hpp"

namespace {

constexpr int kMaxMemoryBuffer = 1 << 20;

struct MemorySink {
    std::string data;
};

MemorySink *memory_sink(const protstream *s) { return static_cast<MemorySink *>(s->sink); }

protstream *make_stream(int fd, int bufsize, MemorySink *sink) {
    auto *s = new (std::nothrow) protstream{};
    if (s == nullptr) return nullptr;
    s->buf = new (std::nothrow) unsigned char[static_cast<size_t>(bufsize)];
    if (s->buf == nullptr) {
        delete s;
        return nullptr;
    }
    s->ptr = s->buf;
    s->cnt = bufsize;
    s->bufsize = bufsize;
    s->fd = fd;
    s->write = 1;
    s->sink = sink;
    return s;
}

void reset_buffer(protstream *s) {
    s->ptr = s->buf;
    s->cnt = s->bufsize;
}

bool stopped(const protstream *s) { return s->error || s->eof; }

}  // namespace

extern "C" {

ssize_t retry_write(int fd, const void *buf, size_t n) noexcept {
    if (n == 0) return 0;
    if (buf == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return orv::write_all(fd, buf, n) == 0 ? static_cast<ssize_t>(n) : -1;
}

protstream *prot_new(int fd, int write) noexcept {
    if (fd < 0 || write == 0) return nullptr;
    return make_stream(fd, PROT_BUFSIZE, nullptr);
}

protstream *prot_new_memory(int bufsize) noexcept {
    if (bufsize == 0) bufsize = PROT_BUFSIZE;
    if (bufsize < 0 || bufsize > kMaxMemoryBuffer) return nullptr;
    auto *sink = new (std::nothrow) MemorySink;
    if (sink == nullptr) return nullptr;
    protstream *s = make_stream(-1, bufsize, sink);
    if (s == nullptr) delete sink;
    return s;
}

int prot_flush(protstream *s) noexcept {
    if (s == nullptr) return -1;
    const size_t pending = static_cast<size_t>(s->ptr - s->buf);
    if (stopped(s)) {
        reset_buffer(s);
        return -1;
    }
    if (pending > 0) {
        if (MemorySink *sink = memory_sink(s)) {
            try {
                sink->data.append(reinterpret_cast<const char *>(s->buf), pending);
            } catch (const std::bad_alloc &) {
                s->error = 1;
            }
        } else if (retry_write(s->fd, s->buf, pending) < 0) {
            s->error = 1;
        }
    }
    reset_buffer(s);
    return stopped(s) ? -1 : 0;
}

int prot_putc(int c, protstream *s) noexcept {
    if (s == nullptr) return -1;
    if (stopped(s)) return -1;
    *s->ptr++ = static_cast<unsigned char>(c);
    if (--s->cnt == 0) prot_flush(s);
    return stopped(s) ? -1 : 0;
}

int prot_write(protstream *s, const char *buf, size_t len) noexcept {
    if (s == nullptr) return -1;
    if (buf == nullptr && len > 0) return -1;
    while (len > 0 && !stopped(s)) {
        // Fill the free space, flushing each time it runs out, exactly as
        // byte-by-byte puts would.
        const size_t n = len < static_cast<size_t>(s->cnt) ? len : static_cast<size_t>(s->cnt);
        std::memcpy(s->ptr, buf, n);
        s->ptr += n;
        s->cnt -= static_cast<int>(n);
        buf += n;
        len -= n;
        if (s->cnt == 0) prot_flush(s);
    }
    return stopped(s) ? -1 : 0;
}

unsigned char *prot_reserve(protstream *s, size_t *room) noexcept {
    if (room != nullptr) *room = 0;
    if (s == nullptr || room == nullptr || stopped(s)) return nullptr;
    *room = static_cast<size_t>(s->cnt);
    return s->ptr;
}

int prot_commit(protstream *s, size_t used) noexcept {
    if (s == nullptr) return -1;
    if (stopped(s)) return -1;
    if (used > static_cast<size_t>(s->cnt)) return -1;
    s->ptr += used;
    s->cnt -= static_cast<int>(used);
    if (s->cnt == 0) prot_flush(s);
    return stopped(s) ? -1 : 0;
}

int prot_printf(protstream *s, const char *fmt, ...) noexcept {
    if (s == nullptr || fmt == nullptr) return -1;
    char small[512];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(small, sizeof small, fmt, ap);
    va_end(ap);
    if (n < 0) return -1;
    if (static_cast<size_t>(n) < sizeof small) return prot_write(s, small, static_cast<size_t>(n));
    try {
        std::string big(static_cast<size_t>(n) + 1, '\0');
        va_start(ap, fmt);
        const int m = vsnprintf(big.data(), big.size(), fmt, ap);
        va_end(ap);
        if (m < 0) return -1;
        return prot_write(s, big.data(), static_cast<size_t>(m));
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

const char *prot_memory_data(protstream *s, size_t *len) noexcept {
    if (s == nullptr || memory_sink(s) == nullptr) return nullptr;
    prot_flush(s);
    const std::string &data = memory_sink(s)->data;
    if (len != nullptr) *len = data.size();
    return data.c_str();
}

void prot_memory_clear(protstream *s) noexcept {
    if (s == nullptr || memory_sink(s) == nullptr) return;
    memory_sink(s)->data.clear();
    reset_buffer(s);
    s->error = 0;
    s->eof = 0;
}

void prot_free(protstream *s) noexcept {
    if (s == nullptr) return;
    prot_flush(s);
    delete memory_sink(s);
    delete[] s->buf;
    delete s;
}

}  // extern "C"
