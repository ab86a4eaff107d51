// String copies handed to callers. The families' strings are freed by their
// C callers with free(), so the copy comes from malloc.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace orv {

// A NUL-terminated malloc copy of the bytes of text (which may hold NULs);
// NULL when memory runs out.
inline char *dup_string(std::string_view text) {
    auto *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

}  // namespace orv
