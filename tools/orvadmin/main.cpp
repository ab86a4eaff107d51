// orvadmin: inspect and edit an installation and try the library, from the
// command line, a script or an interactive prompt.
//
// Exit status: 0 when every command succeeded; otherwise the status of the
// last command that failed (1 in general, 3 to 5 for the network steps of
// "get" and "tcp"), or 1 when only the frame's own commands failed or a
// command was not recognised; 2 when the file given with -c or the script
// given with -I cannot be read; 64 when the command line is wrong. Help
// ("--help", or "-h", "-?", "?" alone) and "-#" alone end with 0.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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
    {"when", 1, "when datetime", "a date or date-time as UTC and local instants", cmd_when, 1},
    {"dur", 1, "dur duration", "a duration read and written again", cmd_dur, 1},
    {"add", 2, "add duration datetime", "a duration added by the calendar", cmd_add, 2},
    {"period", 1, "period start/end|start/dur", "a period's parts and validity", cmd_period, 1},
    {"guid", 0, "guid", "a new GUID as 64 hex digits", cmd_guid, 0},
    {"md5", 1, "md5 text", "MD5 digest of the text", cmd_md5},
    {"calid", 1, "calid text", "a calendar identifier's validity and parts", cmd_calid, 1},
    {"encode", 2, "encode url|html|cookie|full|alpha|js|xml|ical text", "the text encoded", cmd_encode},
    {"decode", 2, "decode url|full text", "the text decoded", cmd_decode},
    {"url", 1, "url text", "a URL's fields and the URL rebuilt", cmd_url, 1},
    {"query", 1, "query text", "the parameters of a query string", cmd_query, 1},
    {"version", 0, "version", "product and version banner", cmd_version, 0},
    {"setting", 1, "setting name", "a value of the configuration file", cmd_setting, 1},
    {"conf", 2, "conf list|get|set|del file ...", "list, read, set or delete entries of a file", cmd_conf},
    {"status", 1, "status service", "a service's state, pid and children", cmd_status},
    {"wait", 3, "wait service ready|stopped seconds", "wait until a service is ready or stopped", cmd_wait},
    {"refresh", 1, "refresh service", "make a service reload its configuration and logs", cmd_refresh},
    {"stop", 2, "stop service seconds", "stop a service, forcing it after the time given", cmd_stop},
    {"start", 1, "start program [args]", "start a program in the background", cmd_start},
    {"ps", 0, "ps [name]", "running processes, or those of one name", cmd_ps},
    {"counters", 0, "counters [-w secs [-n count]] [object]", "live counters; --prometheus [file] for scrapers",
     cmd_counters},
    {"get", 1, "get [-t seconds] url", "an HTTP/1.0 GET, the response line by line", cmd_get, 3},
    {"tcp", 3, "tcp [-t seconds] host port text", "text and a LF sent over TCP, the reply", cmd_tcp},
    {"log", 2, "log tail file [count]", "the last records of a log and its rolled files", cmd_log, 3},
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
    // A usage too long for the column stands on a line of its own.
    for (const Command &c : commands) {
        if (std::strlen(c.usage) < 29)
            out("%-29s- %s\n", c.usage, c.help);
        else
            out("%s\n%-29s- %s\n", c.usage, "", c.help);
    }
}

// Usage, options and commands, for --help.
void usage() {
    calcmd_Options(the_tool);
    out("\nand commands are:\n\n");
    command_help();
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
        const bool fits = argc - 1 >= c.minArgs && (c.maxArgs < 0 || argc - 1 <= c.maxArgs);
        int r = fits ? c.run(argc, tokens) : fail(c.name, "usage: %s", c.usage);
        if (r != 0) failure = r;
        return 0;
    }
    failure = 1;
    return -1;
}

// The configuration file must be chosen before the frame reads its switches.
// Returns 0, or the exit status when "-c" has no value (64) or names a file
// that cannot be read (2).
int apply_config_option(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-c") != 0) continue;
        if (i + 1 >= argc) {
            std::fprintf(stderr, "You must provide a configuration file name\n");
            return 64;
        }
        const char *file = argv[++i];
        if (const char *why = why_unreadable(file)) {
            std::fprintf(stderr, "orvadmin: cannot read %s: %s\n", file, why);
            return 2;
        }
        config_setdefaultfile(file);
    }
    return 0;
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

// "--help" anywhere, or "-h", "-?" or "?" alone ("-h HOST" names a host).
bool wants_usage(int argc, char **argv) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--help") == 0) return true;
    if (argc != 2) return false;
    const std::string_view a = argv[1];
    return a == "-h" || a == "-?" || a == "?";
}

int run(int argc, char **argv) {
    // Typed lines are converted from the terminal's character set.
    std::setlocale(LC_CTYPE, "");
    const bool help = wants_usage(argc, argv);
    if (int status = help ? 0 : apply_config_option(argc, argv)) return status;
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
    const char *unreadable = nullptr;
    if (help) {
        usage();
    } else if (calcmd_Ops(the_tool) != 0) {
        status = argc == 2 && std::strcmp(argv[1], "-#") == 0 ? 0 : 64;
    } else {
        bool script = the_tool->scriptPath != nullptr;
        bool tty = isatty(0) != 0;
        if (script && (unreadable = why_unreadable(the_tool->scriptPath)) != nullptr) {
            std::fprintf(stderr, "orvadmin: cannot read %s: %s\n", the_tool->scriptPath, unreadable);
            status = 2;
        } else {
            // The frame's prompt never ends at end of input: a terminal gets
            // orvadmin's own prompt, and a pipe is read up to its end.
            bool more = !script || the_tool->interactive;
            calcmd_SetPrompt(the_tool, 0);
            calcmd_Input(the_tool);
            if (more && tty)
                run_prompt(the_tool);
            else if (more)
                run_piped();
            status = failure != 0 ? failure : calcmd_FailedCommands() > 0 ? 1 : 0;
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

namespace {

void vnote(const char *command, const char *fmt, va_list ap) {
    char *text = PR_vsmprintf(fmt, ap);
    PR_fprintf(PR_GetSpecialFD(PR_StandardError), "%s: %s\n", command, text ? text : "");
    PR_smprintf_free(text);
}

}  // namespace

int fail(const char *command, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vnote(command, fmt, ap);
    va_end(ap);
    return 1;
}

void note(const char *command, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vnote(command, fmt, ap);
    va_end(ap);
}

bool ascii_iequal(const char *a, const char *b) {
    for (; *a && *b; ++a, ++b) {
        char x = (*a >= 'A' && *a <= 'Z') ? static_cast<char>(*a + 32) : *a;
        char y = (*b >= 'A' && *b <= 'Z') ? static_cast<char>(*b + 32) : *b;
        if (x != y) return false;
    }
    return *a == *b;
}

const char *why_unreadable(const char *path) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::strerror(errno);
    struct stat st;
    const int err = ::fstat(fd, &st) != 0 ? errno : S_ISDIR(st.st_mode) ? EISDIR : 0;
    ::close(fd);
    return err != 0 ? std::strerror(err) : nullptr;
}

const char *rest_of_line(int first) { return calcmd_ReadToEOL(the_tool, first); }

}  // namespace orvadmin

int main(int argc, char **argv) { return orvadmin::run(argc, argv); }
