// orvadmin: inspect and edit an installation and try the library, from the
// command line, a script or an interactive prompt.
//
// Exit status: 0 when every command succeeded; otherwise the status of the
// last command that failed (1 in general, 3 to 5 for the network steps of
// "get" and "tcp", 1 for an unrecognised command); 2 when the script given
// with -I cannot be read; 64 when the command line is wrong. "-?" and "-#"
// alone end with 0.
#include <unistd.h>

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include <prio.h>
#include <prprf.h>

#include "orvadmin.hpp"
#include "orvutil/cal_cmd.h"
#include "orvutil/platform/config.h"

namespace orvadmin {
namespace {

// Adding a command: one entry here and one function.
const Command commands[] = {
    {"when", 1, "when datetime", "a date or date-time as UTC and local instants", cmd_when},
    {"dur", 1, "dur duration", "a duration read and written again", cmd_dur},
    {"add", 2, "add duration datetime", "a duration added by the calendar", cmd_add},
    {"period", 1, "period start/end|start/dur", "a period's parts and validity", cmd_period},
    {"guid", 0, "guid", "a new GUID as 64 hex digits", cmd_guid},
    {"md5", 1, "md5 text", "MD5 digest of the text", cmd_md5},
    {"calid", 1, "calid text", "a calendar identifier's validity and parts", cmd_calid},
    {"encode", 2, "encode url|html|cookie|full|alpha|js|xml|ical text", "the text encoded", cmd_encode},
    {"decode", 2, "decode url|full text", "the text decoded", cmd_decode},
    {"url", 1, "url text", "a URL's fields and the URL rebuilt", cmd_url},
    {"query", 1, "query text", "the parameters of a query string", cmd_query},
    {"version", 0, "version", "product and version banner", cmd_version},
    {"setting", 1, "setting name", "a value of the configuration file", cmd_setting},
    {"conf", 2, "conf list|get|set|del file ...", "list, read, set or delete entries of a file", cmd_conf},
    {"status", 1, "status service", "a service's state, pid and children", cmd_status},
    {"wait", 3, "wait service ready|stopped seconds", "wait until a service is ready or stopped", cmd_wait},
    {"refresh", 1, "refresh service", "make a service reload its configuration and logs", cmd_refresh},
    {"stop", 2, "stop service seconds", "stop a service, forcing it after the time given", cmd_stop},
    {"start", 1, "start program [args]", "start a program in the background", cmd_start},
    {"ps", 0, "ps [name]", "running processes, or those of one name", cmd_ps},
    {"counters", 0, "counters [-w secs [-n count]] [object]", "live counters; --prometheus [file] for scrapers",
     cmd_counters},
    {"get", 1, "get [-t seconds] url", "an HTTP/1.0 GET, the response line by line", cmd_get},
    {"tcp", 3, "tcp [-t seconds] host port text", "text and a LF sent over TCP, the reply", cmd_tcp},
    {"log", 2, "log tail file [count]", "the last records of a log and its rolled files", cmd_log},
};

calcmd_tool *the_tool = nullptr;
int failure = 0;  // the status of the last command that failed

const char *const own_options[] = {
    "-c file                      - configuration file",
    "-h host                      - host name",
    "-p port                      - port number",
    "-u admin                     - administrator name",
    "-w password                  - administrator password",
    nullptr,
};

const char *const own_commands[] = {
    "host name                    - set the host name",
    "port number                  - set the port number",
    "admin name                   - set the administrator name",
    "password text                - set the administrator password",
    nullptr,
};

void print_lines(const char *const *lines) {
    for (; *lines; ++lines) out("%s\n", *lines);
}

void option_help() {
    calcmd_PrintOptions();
    print_lines(own_options);
}

void command_help() {
    calcmd_PrintCommands(the_tool);
    print_lines(own_commands);
    for (const Command &c : commands) out("%-29s- %s\n", c.usage, c.help);
}

// "-c FILE" was applied before the frame started; here it is only skipped.
int option(char **argv, int argc, int *index) {
    if (std::strcmp(argv[*index], "-c") == 0 && *index + 1 < argc) {
        ++*index;
        return 0;
    }
    return -1;
}

int command(char **tokens) {
    int argc = calcmd_CmdvCount(the_tool);
    for (const Command &c : commands) {
        if (!ascii_iequal(tokens[0], c.name)) continue;
        int r = argc - 1 < c.minArgs ? fail(c.name, "usage: %s", c.usage) : c.run(argc, tokens);
        if (r != 0) failure = r;
        return 0;
    }
    failure = 1;
    return -1;
}

// The configuration file must be chosen before the frame reads its switches.
// Returns false when "-c" has no value.
bool apply_config_option(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-c") != 0) continue;
        if (i + 1 >= argc) {
            std::fprintf(stderr, "You must provide a configuration file name\n");
            return false;
        }
        config_setdefaultfile(argv[++i]);
    }
    return true;
}

// Commands from a non-terminal standard input, up to its end or "quit".
void run_piped() {
    char line[CALCMD_LINE_SIZE];
    while (std::fgets(line, sizeof line, stdin)) {
        size_t n = std::strlen(line);
        if (n == sizeof line - 1 && line[n - 1] != '\n') {
            // Drop the rest of an overlong line, as scripts do.
            int c = std::getchar();
            if (c != '\n' && c != EOF) {
                while ((c = std::getchar()) != EOF && c != '\n') {
                }
                std::fprintf(stderr, "Line too long; the rest of it is ignored\n");
            }
        }
        if (calcmd_Cmds(the_tool, line)) break;
    }
}

bool asks_for_help(int argc, char **argv) {
    return argc == 2 &&
           (std::strcmp(argv[1], "-?") == 0 || std::strcmp(argv[1], "?") == 0 || std::strcmp(argv[1], "-#") == 0);
}

int run(int argc, char **argv) {
    // Typed lines are converted from the terminal's character set.
    std::setlocale(LC_CTYPE, "");
    if (!apply_config_option(argc, argv)) return 64;
    if (calcmd_Init(&the_tool, "orvadmin", "", argc, argv, 0, 0, option, option_help, command, command_help, nullptr,
                    nullptr) != 0) {
        std::fprintf(stderr, "orvadmin: out of memory\n");
        return 70;
    }
    config_cache *conf = config_getdefaultcache();
    calcmd_EnableHost(the_tool, config_get_string(conf, "orvadmin.host", "localhost"),
                      config_get_string(conf, "orvadmin.port", "80"));
    calcmd_EnableAdmin(the_tool, config_get_string(conf, "orvadmin.admin", nullptr), nullptr);

    int status = 0;
    if (calcmd_Ops(the_tool) != 0) {
        status = asks_for_help(argc, argv) ? 0 : 64;
    } else {
        bool script = the_tool->scriptPath != nullptr;
        bool tty = isatty(0) != 0;
        if (script && access(the_tool->scriptPath, R_OK) != 0) {
            std::fprintf(stderr, "orvadmin: cannot read %s\n", the_tool->scriptPath);
            status = 2;
        } else {
            // The frame's prompt never ends at end of input; a pipe is read
            // here instead, up to its end.
            bool more = !script || the_tool->interactive;
            calcmd_SetPrompt(the_tool, tty && more ? 1 : 0);
            calcmd_Input(the_tool);
            if (!tty && more) run_piped();
            status = failure;
        }
    }
    calcmd_Exit(&the_tool);
    return status;
}

}  // namespace

void out(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    PR_vfprintf(calcmd_GetOutputFileDescriptor(), fmt, ap);
    va_end(ap);
}

int fail(const char *command, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    char *text = PR_vsmprintf(fmt, ap);
    va_end(ap);
    PR_fprintf(PR_GetSpecialFD(PR_StandardError), "%s: %s\n", command, text ? text : "");
    PR_smprintf_free(text);
    return 1;
}

const char *rest_of_line(int first) { return calcmd_ReadToEOL(the_tool, first); }

bool ascii_iequal(const char *a, const char *b) {
    for (; *a && *b; ++a, ++b) {
        char x = (*a >= 'A' && *a <= 'Z') ? static_cast<char>(*a + 32) : *a;
        char y = (*b >= 'A' && *b <= 'Z') ? static_cast<char>(*b + 32) : *b;
        if (x != y) return false;
    }
    return *a == *b;
}

}  // namespace orvadmin

int main(int argc, char **argv) { return orvadmin::run(argc, argv); }
