// The dictionary readers: a string with any separator (the first input
// byte), a URL's query, an argument vector. What the string reader built,
// written as a query string or as an argument vector and read back, gives
// the same pairs; every name is found again in a sorted copy.
#include <orvutil/cal_dict.h>

#include <cstring>

#include "fuzz_util.hpp"

namespace {

void same_pairs(const caldict *a, const caldict *b) {
    fuzz::check(caldict_length(a) == caldict_length(b));
    for (int i = 0; i < static_cast<int>(caldict_length(a)); i++) {
        fuzz::check(strcmp(caldict_get_indexed_name(a, i), caldict_get_indexed_name(b, i)) == 0);
        fuzz::check(strcmp(static_cast<char *>(caldict_get_indexed_value(a, i)),
                           static_cast<char *>(caldict_get_indexed_value(b, i))) == 0);
    }
}

void free_dict(caldict *d) { caldict_delete_all(d, free); }

void check_read_back(const caldict *d, bool query, bool argv) {
    if (query) {
        fuzz::Freed s(caldict_get_as_string(d));
        caldict *back = caldict_create_from_string(s.p, '&');
        same_pairs(d, back);
        free_dict(back);
    }
    if (argv) {
        char **v = caldict_get_as_argv(d);
        caldict *back = caldict_create_from_argv(v);
        same_pairs(d, back);
        free_dict(back);
        caldict_argv_destroy(v);
        free(v);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    char sep = static_cast<char>(data[0]);
    std::string text = fuzz::text(data + 1, size - 1);
    free_dict(caldict_create_from_url(text.c_str()));

    caldict *d = caldict_create_from_string(text.c_str(), sep);
    fuzz::check(d);
    if (caldict_length(d) > 0) {
        // The writers do not escape: a value may not hold the query
        // separator, and the argv reader drops a value's leading blanks.
        bool blanks = false;
        for (int i = 0; i < static_cast<int>(caldict_length(d)); i++) {
            char c = *static_cast<char *>(caldict_get_indexed_value(d, i));
            blanks |= c == ' ' || c == '\t';
        }
        check_read_back(d, sep == '&' || text.find('&') == std::string::npos, !blanks);

        caldict *sorted = caldict_copy_str(d);
        caldict_sort(sorted);
        for (int i = 0; i < static_cast<int>(caldict_length(d)); i++)
            fuzz::check(caldict_get(sorted, caldict_get_indexed_name(d, i), 0) != nullptr);
        (void)caldict_get_CRC32(sorted);
        const char *first = caldict_get_indexed_name(d, 0);
        caldict_delete(caldict_match_name_fragment(sorted, first, strlen(first), data[0] & 1));
        free_dict(sorted);
    }
    free_dict(d);
    return 0;
}
