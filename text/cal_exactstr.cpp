// Whole-word substring search, case-sensitive or ignoring ASCII case.
#include "orvutil/cal_exactstr.h"

#include <cstring>
#include <string_view>

#include "orv/ascii.hpp"

namespace {

const char *find_ignoring_case(const char *haystack, std::string_view needle) {
    const unsigned char first = orv::ascii_tolower(static_cast<unsigned char>(needle[0]));
    for (const char *p = haystack; *p; ++p) {
        if (orv::ascii_tolower(static_cast<unsigned char>(*p)) != first) continue;
        if (::strnlen(p, needle.size()) < needle.size()) return nullptr;
        if (orv::ascii_iequal(std::string_view(p, needle.size()), needle)) return p;
    }
    return nullptr;
}

char *exact(const char *haystack, const char *needle, const char *delimiters, bool ignore_case) {
    if (haystack == nullptr || needle == nullptr || *needle == '\0') return nullptr;
    const char *set = delimiters != nullptr && *delimiters != '\0' ? delimiters : ",; ";
    const char *hit = ignore_case ? find_ignoring_case(haystack, needle) : std::strstr(haystack, needle);
    if (hit == nullptr) return nullptr;
    // Only the first occurrence counts, whole word or not.
    if (hit != haystack && std::strchr(set, hit[-1]) == nullptr) return nullptr;
    const char after = hit[std::strlen(needle)];
    if (after != '\0' && std::strchr(set, after) == nullptr) return nullptr;
    return const_cast<char *>(hit);
}

}  // namespace

extern "C" {

char *cal_strexactstr(const char *haystack, const char *needle, const char *delimiters) noexcept {
    return exact(haystack, needle, delimiters, false);
}

char *cal_strexactcasestr(const char *haystack, const char *needle, const char *delimiters) noexcept {
    return exact(haystack, needle, delimiters, true);
}

}  // extern "C"
