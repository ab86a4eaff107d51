// orvadmin's prompt on a terminal: line editing and a history kept between
// sessions in ~/.orvadmin_history. The frame's own prompt is not used: it
// has neither, and it never ends at end of input.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <editline/readline.h>

#include "orvadmin.hpp"
#include "orvutil/cal_cmd.h"
#include "orvutil/platform/mee.h"

namespace orvadmin {
namespace {

constexpr int kHistoryLines = 1000;

std::string history_file() {
    const char *home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.orvadmin_history" : std::string();
}

// The line as the frame's prompt hands it on: converted from the terminal's
// character set (as typed when it does not convert) and cut as scripts cut
// their lines.
std::string prepare(const char *typed) {
    std::string line = typed;
    if (char *utf8 = MEE_LocalToUTF8(-1, typed)) {
        line = utf8;
        std::free(utf8);
    }
    if (line.size() > CALCMD_LINE_SIZE - 1) {
        line.resize(CALCMD_LINE_SIZE - 1);
        std::fprintf(stderr, "Line too long; the rest of it is ignored\n");
    }
    return line;
}

}  // namespace

void run_prompt(calcmd_tool *tool) {
    const std::string history = history_file();
    using_history();
    stifle_history(kHistoryLines);
    if (!history.empty()) read_history(history.c_str());
    const std::string prompt = std::string(tool->program) + "> ";
    for (;;) {
        char *typed = readline(prompt.c_str());
        if (typed == nullptr) {  // Ctrl-D, or the terminal went away
            std::fputs("\n", stdout);
            break;
        }
        if (*typed != '\0') add_history(typed);
        std::string line = prepare(typed);
        std::free(typed);
        if (calcmd_Cmds(tool, line.data())) break;
    }
    if (!history.empty()) write_history(history.c_str());
}

}  // namespace orvadmin
