// Delimited lists and argument vectors. The first input byte is the list
// delimiter, the rest the text. Without quotes a list is the text cut at
// every delimiter; the pointer list and the string array always agree; the
// look-ups over the elements agree whether they are read as a vector or as
// an array, and find the entry they were asked for.
#include <orvutil/cal_parseutil.h>
#include <orvutil/platform/array.h>
#include <plstr.h>

#include <cstring>
#include <vector>

#include "fuzz_util.hpp"

namespace {

std::vector<std::string> model_split(const std::string &s, char delimiter) {
    std::vector<std::string> out;
    size_t from = 0, at;
    while (delimiter && (at = s.find(delimiter, from)) != std::string::npos) {
        out.push_back(s.substr(from, at - from));
        from = at + 1;
    }
    out.push_back(s.substr(from));
    return out;
}

void check_lookups(char **vector, const array_t *array, int mode) {
    int n = array_count(array);
    std::string name = fuzz::split(vector[n - 1], '=').first;
    fuzz::check(cal_parseutil_is_an_arg(vector, name.c_str()) == 1);
    const char *v = cal_parseutil_arg_value(vector, name.c_str());
    const char *a = cal_parseutil_arg_value_from_strarray(array, name.c_str());
    fuzz::check((v == nullptr) == (a == nullptr) && (!v || strcmp(v, a) == 0));
    (void)cal_parseutil_arg_value_or_empty(vector, name.c_str());
    array_t *found = nullptr;
    (void)cal_parseutil_searchForString(vector, name.c_str(), mode, &found);
    if (found) strarray_free_and_destroy(found);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    char delimiter = static_cast<char>(data[0]);
    std::string s = fuzz::text(data + 1, size - 1);

    char **list = nullptr;
    int count = 0;
    array_t *array = nullptr;
    fuzz::check(cal_parseutil_get_char_list(s.c_str(), &list, &count, delimiter) == 0);
    fuzz::check(cal_parseutil_get_char_array(s.c_str(), delimiter, &array) == 0 && array);
    fuzz::check(count == array_count(array) && count > 0);
    for (int i = 0; i < count; i++) fuzz::check(strcmp(list[i], strarray_elementat(array, i)) == 0);
    if (s.find('"') == std::string::npos) {
        auto want = model_split(s, delimiter);
        fuzz::check(want.size() == static_cast<size_t>(count));
        for (int i = 0; i < count; i++) fuzz::check(want[i] == list[i]);
    }
    std::vector<char *> vector(list, list + count);
    vector.push_back(nullptr);
    check_lookups(vector.data(), array, delimiter & 3);
    cal_parseutil_free_char_list(&list, count);
    strarray_free_and_destroy(array);

    array_t *words = array_new();
    std::string copy = s;
    cal_parseutil_delimit_by_space_or_tab(copy.data(), words);
    strarray_free_and_destroy(words);

    copy = s;
    cal_parseutil_trim(copy.data());
    fuzz::check(s.compare(0, strlen(copy.c_str()), copy.c_str()) == 0);
    (void)cal_parseutil_getInteger(s.c_str(), -1);
    (void)cal_parseutil_getBool(s.c_str());
    return 0;
}
