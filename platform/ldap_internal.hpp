// Helpers shared by the directory users of the platform library.
#pragma once

#include <string>
#include <string_view>

#include "orv/ascii.hpp"
#include "orvutil/platform/ldpool.h"

namespace orv {

// A value escaped for an LDAP search filter (RFC 4515): '*', '(', ')', '\'
// and NUL become \2a, \28, \29, \5c, \00.
inline std::string ldap_filter_escape(std::string_view value) {
    std::string out;
    out.reserve(value.size());
    for (const char ch : value) {
        const auto c = static_cast<unsigned char>(ch);
        if (c == '*' || c == '(' || c == ')' || c == '\\' || c == 0) {
            out += '\\';
            out += kHexLower[c >> 4];
            out += kHexLower[c & 15];
        } else {
            out += ch;
        }
    }
    return out;
}

// The pool's operation time-out in seconds (NULL: the default pool), for
// callers that wait for asynchronous operations themselves.
int ldpool_op_timeout(LdPool *pool);

}  // namespace orv
