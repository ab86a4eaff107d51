// The command tokenizer: a line without quotes splits at blanks, tabs, CRs
// and LFs (leading and trailing white space dropped), the rest of the line
// starts at the second token, and the tokens read back joined by blanks.
// Quoted lines are only checked for memory safety.
#include <orvutil/cal_cmd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_io.hpp"

namespace {

bool space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool separator(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The model: tokens and where the second one starts.
std::vector<std::string> split(const std::string &line, size_t *second) {
    size_t len = line.size();
    while (len > 0 && space(line[len - 1])) --len;
    std::vector<std::string> tokens;
    for (size_t pos = 0; pos < len;) {
        while (pos < len && space(line[pos])) ++pos;
        if (pos == len) break;
        const size_t start = pos;
        while (pos < len && !separator(line[pos])) ++pos;
        if (tokens.size() == 1) *second = start;
        tokens.push_back(line.substr(start, pos - start));
    }
    return tokens;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static calcmd_tool *tool = [] {
        fuzz_io::quiet_setup();
        calcmd_tool *t = nullptr;
        if (calcmd_Init(&t, "fuzz", "", 0, nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) != 0)
            abort();
        return t;
    }();
    std::string line(reinterpret_cast<const char *>(data), size);
    line.resize(std::strlen(line.c_str()));
    std::string parsed = line;
    char *rest = nullptr;
    const int rc = calcmd_Parse(tool, parsed.data(), &rest);
    if (rc != CALCMD_OK && rc != CALCMD_PARSE_E_BLANK) abort();
    if (calcmd_CmdvCount(tool) >= 2 && (rest < parsed.data() || rest > parsed.data() + parsed.size())) abort();
    const std::string joined = calcmd_ReadToEOL(tool, 0);
    if (joined.size() >= CALCMD_LINE_SIZE) abort();
    if (line.find_first_of("\"'") != std::string::npos) return 0;

    size_t second = 0;
    const std::vector<std::string> model = split(line, &second);
    if (static_cast<size_t>(calcmd_CmdvCount(tool)) != model.size()) abort();
    std::string expected;
    for (size_t i = 0; i < model.size(); ++i) {
        if (model[i] != tool->cmdv[i]) abort();
        expected += (i ? " " : "") + model[i];
    }
    if (model.size() >= 2 && rest != parsed.data() + second) abort();
    if (expected.size() < CALCMD_LINE_SIZE && joined != expected) abort();
    return 0;
}
