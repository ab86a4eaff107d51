// Helpers shared by the fuzz targets.
#ifndef ORV_FUZZ_UTIL_HPP
#define ORV_FUZZ_UTIL_HPP

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

namespace fuzz {

// The input as a C string: the library's readers stop at the first NUL.
inline std::string text(const uint8_t *data, size_t size) {
    std::string s(reinterpret_cast<const char *>(data), size);
    s.resize(s.find('\0') == std::string::npos ? size : s.find('\0'));
    return s;
}

// The text before and after the first c (all of it and "" without one).
inline std::pair<std::string, std::string> split(const std::string &s, char c) {
    size_t at = s.find(c);
    if (at == std::string::npos) return {s, ""};
    return {s.substr(0, at), s.substr(at + 1)};
}

// Frees a malloc'ed pointer at the end of the scope.
struct Freed {
    char *p;
    explicit Freed(char *q) : p(q) {}
    ~Freed() { free(p); }
    Freed(const Freed &) = delete;
    Freed &operator=(const Freed &) = delete;
};

inline void check(bool ok) {
    if (!ok) abort();
}

}  // namespace fuzz

#endif
