// Growable byte buffer with a small printf.
#include "orvutil/cal_strm.h"

#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "orv/ascii.hpp"

namespace {

// Grows the buffer to hold `need` more bytes plus one chunk; false (record
// unchanged) when memory runs out or the size leaves 32 bits.
bool extend_buffer(calstrm *s, unsigned int need) {
    const uint64_t base = s->buffer == nullptr ? 0 : s->capacity;
    const uint64_t size = base + need + s->chunksize;
    if (size > UINT_MAX || size == 0) return size == 0;
    void *grown = s->buffer == nullptr ? std::calloc(1, size) : std::realloc(s->buffer, size);
    if (grown == nullptr) return false;
    s->buffer = static_cast<char *>(grown);
    s->capacity = static_cast<unsigned int>(size);
    return true;
}

bool write_bytes(calstrm *s, const void *data, size_t n) {
    if (n > INT_MAX) return false;
    const auto count = static_cast<unsigned int>(n);
    // The position is public; never let a caller's value put a write beyond
    // the bytes already accounted for.
    if (s->position > s->length) s->position = s->length;
    if (s->capacity - s->length <= count && !extend_buffer(s, count)) return false;
    if (count > 0) std::memcpy(s->buffer + s->position, data, count);
    s->length += count;
    s->position += count;
    return true;
}

// Writes value in the base as printf's d/u/o/x/X would; returns the length.
template <typename T>
size_t format_number(char (&out)[32], T value, int base, bool upper) {
    const auto result = std::to_chars(out, out + sizeof out, value, base);
    const auto len = static_cast<size_t>(result.ptr - out);
    if (upper)
        for (size_t i = 0; i < len; ++i)
            out[i] = static_cast<char>(orv::ascii_toupper(static_cast<unsigned char>(out[i])));
    return len;
}

}  // namespace

extern "C" {

calstrm *calstrm_new(int mode) noexcept {
    auto *s = static_cast<calstrm *>(std::calloc(1, sizeof(calstrm)));
    if (s == nullptr) return nullptr;
    s->chunksize = CALSTRM_DEFAULT_CHUNK;
    if (mode == 1 && !extend_buffer(s, s->chunksize)) {
        std::free(s);
        return nullptr;
    }
    return s;
}

int calstrm_delete(calstrm *stream) noexcept {
    if (stream != nullptr) {
        std::free(stream->buffer);
        std::free(stream);
    }
    return 0;
}

int calstrm_write(calstrm *stream, const void *data, unsigned int n) noexcept {
    if (stream == nullptr || (data == nullptr && n > 0)) return CALSTRM_E_FAIL;
    return write_bytes(stream, data, n) ? static_cast<int>(n) : -1;
}

int calstrm_putc(calstrm *stream, int c) noexcept {
    const char byte = static_cast<char>(c);
    return calstrm_write(stream, &byte, 1);
}

int calstrm_read(calstrm *stream, void *out, unsigned int n) noexcept {
    if (stream == nullptr || stream->position >= stream->length) return CALSTRM_E_FAIL;
    unsigned int count = stream->length - stream->position;
    if (n < count) count = n;
    if (count > INT_MAX) count = INT_MAX;
    if (count > 0) {
        if (out == nullptr) return CALSTRM_E_FAIL;
        std::memcpy(out, stream->buffer, count);
    }
    stream->position += count;
    return static_cast<int>(count);
}

int calstrm_printf(calstrm *stream, const char *format, ...) noexcept {
    if (stream == nullptr || format == nullptr) return CALSTRM_E_FAIL;
    va_list ap;
    va_start(ap, format);
    const unsigned int start = stream->length;
    bool ok = true;
    char scratch[32];
    const char *p = format;
    while (ok && *p != '\0') {
        const char *pct = std::strchr(p, '%');
        const size_t literal = pct == nullptr ? std::strlen(p) : static_cast<size_t>(pct - p);
        if (literal > 0) ok = write_bytes(stream, p, literal);
        if (pct == nullptr || !ok) break;
        p = pct + 1;
        size_t len = 0;
        switch (*p++) {
            case '%':
                scratch[0] = '%';
                len = 1;
                break;
            case 'd': len = format_number(scratch, va_arg(ap, int), 10, false); break;
            case 'u': len = format_number(scratch, va_arg(ap, unsigned), 10, false); break;
            case 'x': len = format_number(scratch, va_arg(ap, unsigned), 16, false); break;
            case 'X': len = format_number(scratch, va_arg(ap, unsigned), 16, true); break;
            case 'o': len = format_number(scratch, va_arg(ap, unsigned), 8, false); break;
            case 'c':
                scratch[0] = static_cast<char>(va_arg(ap, int));
                len = 1;
                break;
            case 's': {
                const char *text = va_arg(ap, const char *);
                if (text == nullptr) text = "(null)";
                ok = write_bytes(stream, text, std::strlen(text));
                continue;
            }
            case 'l': {
                // The letter after 'l' is consumed whatever it is.
                const char letter = *p;
                if (letter == '\0') std::abort();
                ++p;
                if (letter == 'u')
                    len = format_number(scratch, va_arg(ap, unsigned long), 10, false);
                else if (letter == 'o')
                    len = format_number(scratch, va_arg(ap, unsigned long), 8, false);
                else if (letter == 'x' || letter == 'X')
                    len = format_number(scratch, va_arg(ap, unsigned long), 16, letter == 'X');
                else
                    len = format_number(scratch, va_arg(ap, long), 10, false);
                break;
            }
            default:
                // Format strings are fixed in the code: anything else is a bug.
                std::abort();
        }
        ok = write_bytes(stream, scratch, len);
    }
    va_end(ap);
    if (!ok) return CALSTRM_E_FAIL;
    const unsigned int written = stream->length - start;
    return written > INT_MAX ? INT_MAX : static_cast<int>(written);
}

void calstrm_set_chunksize(calstrm *stream, unsigned int n) noexcept {
    if (stream != nullptr) stream->chunksize = n;
}

unsigned int calstrm_get_chunksize(const calstrm *stream) noexcept { return stream == nullptr ? 0 : stream->chunksize; }

char *calstrm_getbuffer(const calstrm *stream) noexcept { return stream == nullptr ? nullptr : stream->buffer; }

unsigned int calstrm_getlength(const calstrm *stream) noexcept { return stream == nullptr ? 0 : stream->length; }

}  // extern "C"
