// The command tool loop: context, command-line options, tokenizer, common
// commands, script import and the prompt.
#include "orvutil/cal_cmd.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include <plstr.h>
#include <prerror.h>
#include <prinit.h>
#include <prmem.h>
#include <prprf.h>

#include "cal_cmd_internal.hpp"
#include "orv/ascii.hpp"
#include "orvutil/cal_file.h"
#include "orvutil/cal_i18n.h"
#include "orvutil/cal_prf.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/mee.h"

namespace {

PRFileDesc *output_fd = nullptr;
int script_depth = 0;

const char *const option_help[] = {
    "-#                           - build date",
    "-v                           - verbose mode",
    "-I script                    - import commands from script",
    "-K                           - interactive mode",
    nullptr,
};

const char *const command_help[] = {
    "help or ?                    - this information",
    "import script                - import commands from script",
    "info                         - print current settings",
    "quit                         - quit the program",
    "verbose on|off               - verbose mode",
    nullptr,
};

const char *const test_rig_help[] = {
    "date format                  - set the date format",
    "                               ISO8601 format is:  %Y%m%dT%H%M%SZ",
    nullptr,
};

const char dash_line[] = "---------------------------------------------------------------------------";
static_assert(sizeof dash_line == 76);

PRFileDesc *std_out() { return PR_GetSpecialFD(PR_StandardOutput); }
PRFileDesc *std_err() { return PR_GetSpecialFD(PR_StandardError); }

// The output descriptor for an output directory: a unique profiling file in
// it, standard output without one.
PRFileDesc *open_output(const char *directory) { return calprf_GetUniqueFileDesc(directory, nullptr); }

void start_locale() {
    MEE_Initialize(config_msg_getstring,
                   config_get_switch(config_getdefaultcache(), "local.rfc822header.allow8bit", 0));
}

// Text typed at the prompt, converted from the terminal's character set; a
// line that does not convert is run as typed.
std::string local_to_utf8(const std::string &line) {
    char *converted = MEE_LocalToUTF8(-1, line.c_str());
    if (converted == nullptr) return line;
    std::string result(converted);
    std::free(converted);
    return result;
}

void print_table(PRFileDesc *fd, const char *const *lines) {
    for (; *lines != nullptr; ++lines) PR_fprintf(fd, "%s\n", *lines);
}

bool ends_unquoted(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string unescape(std::string_view quoted) {
    std::string out;
    out.reserve(quoted.size());
    for (size_t i = 0; i < quoted.size(); ++i) {
        char c = quoted[i];
        if (c == '\\' && i + 1 < quoted.size()) {
            c = quoted[++i];
            if (c == 'f')
                c = '\f';
            else if (c == 'n')
                c = '\n';
            else if (c == 'r')
                c = '\r';
        }
        out += c;
    }
    return out;
}

void free_tool(calcmd_tool *tool) {
    if (tool->argv != nullptr) {
        for (char **a = tool->argv; *a != nullptr; ++a) PL_strfree(*a);
        PR_Free(tool->argv);
    }
    if (tool->cmdv != nullptr) {
        calcmd_ClearCmdv(tool);
        PR_Free(tool->cmdv);
    }
    char **owned[] = {&tool->buildDate, &tool->dateFormat, &tool->scriptPath,     &tool->admin,      &tool->password,
                      &tool->host,      &tool->port,       &tool->adminPort,      &tool->backupPath, &tool->restorePath,
                      &tool->backupId,  &tool->restoreId,  &tool->outputDirectory};
    for (char **s : owned) calcmd_FreeString(s);
    PR_Free(tool);
}

// Runs the lines of an open script; stops after "quit".
void run_script(calcmd_tool *tool, PRFileDesc *fd) {
    std::string line;
    while (calcmd::read_line(fd, &line)) {
        if (line.empty() || line[0] == '\0') continue;
        calcmd::out("in> %s%s", line.c_str(), line.back() == '\n' ? "" : "\n");
        std::fflush(stdout);
        if (calcmd_Cmds(tool, line.data()) == CALCMD_QUIT) break;
    }
}

// The frame's setters: (tool, argv, argc, &index), 0 or CALCMD_REFUSED.
using Setter = int (*)(calcmd_tool *, char **, int, int *);

// Where calcmd_Ops stands while it walks the command line.
struct OptionState {
    calcmd_tool *tool;
    char **argv;
    int argc;
    int index;
    bool saw_interactive;  // "-K" came before: "-I" keeps the prompt
};

// An option's own action: CALCMD_OK to go on, anything else ends the parse
// with CALCMD_E_FAIL.
using OptionAction = int (*)(OptionState &);

// The frame's own options. Each needs its group switched on (nullptr: always
// there) and either hands its value to a setter or runs an action.
struct Option {
    std::string_view name;
    int calcmd_tool::*group;
    Setter set;
    OptionAction act;
};

int option_verbose(OptionState &s) {
    s.tool->verbose = 1;
    return CALCMD_OK;
}

int option_build_date(OptionState &s) {
    calcmd::err("\nBuild date is: %s\n", s.tool->buildDate);
    return CALCMD_E_FAIL;
}

int option_script(OptionState &s) {
    const int r = calcmd_SetScript(s.tool, s.argv, s.argc, &s.index);
    s.tool->interactive = s.saw_interactive ? 1 : 0;
    return r;
}

int option_interactive(OptionState &s) {
    s.tool->interactive = 1;
    s.saw_interactive = true;
    return CALCMD_OK;
}

// "-9 value": accepted and ignored.
int option_ignored(OptionState &s) {
    if (s.index + 1 < s.argc) ++s.index;
    return CALCMD_OK;
}

int option_backup_or_restore(OptionState &s, bool restore) {
    calcmd_tool *t = s.tool;
    const int r = restore ? calcmd_SetRestore(t, s.argv, s.argc, &s.index, t->backupNeedsId)
                          : calcmd_SetBackup(t, s.argv, s.argc, &s.index, t->backupNeedsId);
    if (r == CALCMD_OK) (restore ? t->restoreRequested : t->backupRequested) = 1;
    return r;
}

int option_backup(OptionState &s) { return option_backup_or_restore(s, false); }
int option_restore(OptionState &s) { return option_backup_or_restore(s, true); }

const Option options[] = {
    {"-a", &calcmd_tool::adminPortEnabled, calcmd_SetAdminPort, nullptr},
    {"-h", &calcmd_tool::hostEnabled, calcmd_SetHost, nullptr},
    {"-p", &calcmd_tool::hostEnabled, calcmd_SetPort, nullptr},
    {"-u", &calcmd_tool::adminEnabled, calcmd_SetAdmin, nullptr},
    {"-w", &calcmd_tool::adminEnabled, calcmd_SetPassword, nullptr},
    {"-v", nullptr, nullptr, option_verbose},
    {"-#", nullptr, nullptr, option_build_date},
    {"-I", nullptr, nullptr, option_script},
    {"-K", nullptr, nullptr, option_interactive},
    {"-9", nullptr, nullptr, option_ignored},
    {"-B", &calcmd_tool::backupEnabled, nullptr, option_backup},
    {"-R", &calcmd_tool::backupEnabled, nullptr, option_restore},
};

const Option *find_option(const calcmd_tool *tool, std::string_view arg) {
    for (const Option &o : options)
        if (o.name == arg && (o.group == nullptr || tool->*o.group != 0)) return &o;
    return nullptr;
}

int run_option(const Option &o, OptionState &s) {
    return o.set != nullptr ? o.set(s.tool, s.argv, s.argc, &s.index) : o.act(s);
}

// A command's own action on the tokens; true ends the loop ("quit").
using CommandAction = bool (*)(calcmd_tool *, char **tokens, int count);

// The frame's own commands: a name and an optional second name, the group
// that must be on (nullptr: always there), and either a setter that takes
// the token after the name or an action.
struct Command {
    std::string_view name;
    std::string_view alias;
    int calcmd_tool::*group;
    Setter set;
    CommandAction act;
};

bool command_quit(calcmd_tool *, char **, int) {
    calcmd::out("\n\n");
    return true;
}

bool command_show_help(calcmd_tool *tool, char **, int) {
    calcmd_Commands(tool);
    return false;
}

bool command_info(calcmd_tool *tool, char **, int) {
    calcmd_Info(tool);
    return false;
}

bool command_date(calcmd_tool *tool, char **, int) {
    calcmd_SetDateFmt(tool);
    return false;
}

bool command_verbose(calcmd_tool *tool, char **tokens, int count) {
    tool->verbose = calcmd_OnOff(count > 1 ? tokens[1] : nullptr);
    return false;
}

bool command_import(calcmd_tool *tool, char **tokens, int count) {
    int index = 0;
    if (calcmd_SetScript(tool, tokens, count, &index) == CALCMD_OK) {
        // The tokens are cleared by the script's own lines.
        const std::string path(tool->scriptPath);
        calcmd_Import(tool, path.c_str());
    }
    return false;
}

// With the admin-port group on, "port" sets the admin port.
bool command_port(calcmd_tool *tool, char **tokens, int count) {
    int index = 0;
    (tool->adminPortEnabled != 0 ? calcmd_SetAdminPort : calcmd_SetPort)(tool, tokens, count, &index);
    return false;
}

// Backup and restore from the prompt take a path only, then run at once.
bool backup_or_restore(calcmd_tool *tool, char **tokens, int count, bool restore) {
    int index = 0;
    const Setter set = restore
                           ? [](calcmd_tool *t, char **v, int n, int *i) { return calcmd_SetRestore(t, v, n, i, 0); }
                           : [](calcmd_tool *t, char **v, int n, int *i) { return calcmd_SetBackup(t, v, n, i, 0); };
    const calcmd_backup_fn run = restore ? tool->restoreFn : tool->backupFn;
    if (set(tool, tokens, count, &index) == CALCMD_OK && run != nullptr)
        run(restore ? tool->restorePath : tool->backupPath, restore ? tool->restoreId : tool->backupId);
    return false;
}

bool command_backup(calcmd_tool *tool, char **tokens, int count) {
    return backup_or_restore(tool, tokens, count, false);
}
bool command_restore(calcmd_tool *tool, char **tokens, int count) {
    return backup_or_restore(tool, tokens, count, true);
}

const Command commands[] = {
    {"q", "quit", nullptr, nullptr, command_quit},
    {"backup", {}, &calcmd_tool::backupEnabled, nullptr, command_backup},
    {"date", {}, &calcmd_tool::testRig, nullptr, command_date},
    {"admin", "administrator", &calcmd_tool::adminEnabled, calcmd_SetAdmin, nullptr},
    {"?", "help", nullptr, nullptr, command_show_help},
    {"host", "hostname", &calcmd_tool::hostEnabled, calcmd_SetHost, nullptr},
    {"im", "import", nullptr, nullptr, command_import},
    {"i", "info", nullptr, nullptr, command_info},
    {"pass", "password", &calcmd_tool::adminEnabled, calcmd_SetPassword, nullptr},
    {"port", {}, &calcmd_tool::hostEnabled, nullptr, command_port},
    {"restore", {}, &calcmd_tool::backupEnabled, nullptr, command_restore},
    {"v", "verbose", nullptr, nullptr, command_verbose},
};

const Command *find_command(const calcmd_tool *tool, std::string_view name) {
    for (const Command &c : commands) {
        const bool named = orv::ascii_iequal(name, c.name) || (!c.alias.empty() && orv::ascii_iequal(name, c.alias));
        if (named && (c.group == nullptr || tool->*c.group != 0)) return &c;
    }
    return nullptr;
}

// True when the command ended the loop.
bool run_command(const Command &c, calcmd_tool *tool, char **tokens, int count) {
    if (c.act != nullptr) return c.act(tool, tokens, count);
    int index = 0;  // the setter takes the token after the name
    c.set(tool, tokens, count, &index);
    return false;
}

}  // namespace

namespace calcmd {

void out(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    PR_vfprintf(calcmd_GetOutputFileDescriptor(), fmt, ap);
    va_end(ap);
}

void err(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    PR_vfprintf(std_err(), fmt, ap);
    va_end(ap);
}

bool read_line(PRFileDesc *fd, std::string *line) {
    line->clear();
    bool got = false;
    bool dropped = false;
    char c;
    while (PR_Read(fd, &c, 1) == 1) {
        got = true;
        if (line->size() < CALCMD_LINE_SIZE - 1) {
            *line += c;
            if (c == '\n') break;
        } else if (c == '\n') {
            break;  // a line that just fills the buffer is whole
        } else {
            dropped = true;
        }
    }
    if (dropped) err("Line too long; the rest of it is ignored\n");
    return got;
}

}  // namespace calcmd

extern "C" {

int calcmd_Init(calcmd_tool **out, const char *program, const char *usage, int argc, char **argv, int interactive,
                int optionsOnly, calcmd_option_fn optionFn, calcmd_print_fn optionHelpFn, calcmd_command_fn commandFn,
                calcmd_print_fn commandHelpFn, calcmd_print_fn infoFn, calcmd_script_fn scriptFn) noexcept {
    if (out == nullptr) return CALCMD_E_FAIL;
    *out = nullptr;
    if (PR_Initialized() == PR_FALSE) PR_Init(PR_USER_THREAD, PR_PRIORITY_NORMAL, 0);
    start_locale();

    auto *tool = static_cast<calcmd_tool *>(PR_Calloc(1, sizeof(calcmd_tool)));
    if (tool == nullptr) return CALCMD_E_FAIL;
    tool->program = program != nullptr ? program : "";
    tool->usage = usage != nullptr ? usage : "";
    tool->optionFn = optionFn;
    tool->optionHelpFn = optionHelpFn;
    tool->commandFn = commandFn;
    tool->commandHelpFn = commandHelpFn;
    tool->infoFn = infoFn;
    tool->scriptFn = scriptFn;
    tool->cmdvCapacity = CALCMD_TOKEN_CAPACITY;
    tool->cmdv = static_cast<char **>(PR_Calloc(CALCMD_TOKEN_CAPACITY + 1, sizeof(char *)));
    tool->optionsOnly = optionsOnly;
    tool->interactive = interactive;
    tool->testRig = interactive;
    bool ok = tool->cmdv != nullptr && calcmd_ReplaceString(&tool->buildDate, CALCMD_BUILD_DATE) == CALCMD_OK &&
              calcmd_ReplaceString(&tool->dateFormat, CALCMD_DEFAULT_DATE_FORMAT) == CALCMD_OK;
    if (ok && argc > 0 && argv != nullptr) {
        tool->argv = static_cast<char **>(PR_Calloc(static_cast<PRUint32>(argc) + 1, sizeof(char *)));
        ok = tool->argv != nullptr;
        for (int i = 0; ok && i < argc; ++i) {
            tool->argv[i] = PL_strdup(argv[i] != nullptr ? argv[i] : "");
            ok = tool->argv[i] != nullptr;
        }
        tool->argc = argc;
    }
    if (!ok) {
        free_tool(tool);
        return CALCMD_E_FAIL;
    }
    output_fd = open_output(tool->outputDirectory);
    *out = tool;
    return 0;
}

int calcmd_Ops(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return CALCMD_E_FAIL;
    char **argv = tool->argv;
    const int argc = tool->argv != nullptr ? tool->argc : 0;
    if ((argc <= 1 && tool->optionsOnly != 0) ||
        (argc > 1 && (std::strcmp(argv[1], "?") == 0 || std::strcmp(argv[1], "-?") == 0))) {
        calcmd_Options(tool);
        return CALCMD_E_FAIL;
    }
    OptionState state{tool, argv, argc, 1, false};
    for (; state.index < argc; ++state.index) {
        if (const Option *option = find_option(tool, argv[state.index])) {
            // Refused (the message is printed) or "-#": the parse ends.
            if (run_option(*option, state) != CALCMD_OK) return CALCMD_E_FAIL;
            continue;
        }
        const int r = tool->optionFn != nullptr ? tool->optionFn(argv, argc, &state.index) : CALCMD_E_UNRECOGNISED;
        if (r == CALCMD_OPTIONS_DONE) return CALCMD_OK;
        if (r == CALCMD_E_UNRECOGNISED) {
            calcmd::err("unrecognized option: %s\n\n", argv[state.index < argc ? state.index : argc - 1]);
            calcmd_Options(tool);
            return CALCMD_E_FAIL;
        }
        if (r != CALCMD_OK) return r;
    }
    output_fd = open_output(tool->outputDirectory);
    return CALCMD_OK;
}

int calcmd_Parse(calcmd_tool *tool, char *line, char **rest) noexcept {
    if (tool == nullptr) return CALCMD_PARSE_E_ARG;
    calcmd_ClearCmdv(tool);
    if (line == nullptr || rest == nullptr) return CALCMD_PARSE_E_ARG;
    *rest = nullptr;
    size_t len = std::strlen(line);
    while (len > 0 && orv::ascii_isspace(static_cast<unsigned char>(line[len - 1]))) line[--len] = '\0';
    if (len == 0) return CALCMD_PARSE_E_BLANK;

    size_t pos = 0;
    bool warned_full = false;
    while (pos < len) {
        while (pos < len && orv::ascii_isspace(static_cast<unsigned char>(line[pos]))) ++pos;
        if (pos >= len) break;
        std::string token;
        size_t start = pos;
        char q = line[pos];
        if (q == '"' || q == '\'') {
            start = ++pos;
            const char *close = static_cast<const char *>(std::memchr(line + pos, q, len - pos));
            const size_t end = close != nullptr ? static_cast<size_t>(close - line) : len;
            if (close == nullptr) calcmd::err("You forgot to close the quote...  Assuming close quote at eol.\n");
            token = unescape(std::string_view(line + pos, end - pos));
            pos = close != nullptr ? end + 1 : len;
        } else {
            while (pos < len && !ends_unquoted(line[pos])) ++pos;
            token.assign(line + start, pos - start);
        }
        if (tool->cmdvCount >= tool->cmdvCapacity) {
            if (!warned_full) calcmd::err("Too many tokens; the rest of the line is ignored\n");
            warned_full = true;
            break;
        }
        char *copy = PL_strdup(token.c_str());
        if (copy == nullptr) break;
        if (tool->cmdvCount == 1) *rest = line + start;
        tool->cmdv[tool->cmdvCount++] = copy;
    }
    return CALCMD_OK;
}

int calcmd_Cmds(calcmd_tool *tool, char *line) noexcept {
    char *rest = nullptr;
    if (tool == nullptr || calcmd_Parse(tool, line, &rest) != CALCMD_OK || tool->cmdvCount == 0) return CALCMD_OK;
    char **tokens = tool->cmdv;
    const char *name = tokens[0];
    if (name[0] == '#' || name[0] == ';' || (name[0] == '/' && name[1] == '/')) return CALCMD_OK;
    if (const Command *command = find_command(tool, name))
        return run_command(*command, tool, tokens, tool->cmdvCount) ? CALCMD_QUIT : CALCMD_OK;
    if (name[0] != '\0' && tool->commandFn != nullptr && tool->commandFn(tokens) == CALCMD_E_UNRECOGNISED)
        calcmd::out("Unrecognized command, type \"help\" for a list\n");
    return CALCMD_OK;
}

int calcmd_Import(calcmd_tool *tool, const char *path) noexcept {
    if (path == nullptr || tool == nullptr) return CALCMD_IMPORT_E_PATH;
    if (tool->testRig != 0 && (std::strstr(path, ".js") != nullptr || std::strstr(path, ".JS") != nullptr)) {
        if (tool->scriptFn != nullptr) tool->scriptFn(path);
        return CALCMD_OK;
    }
    if (script_depth >= CALCMD_MAX_SCRIPT_DEPTH) {
        calcmd::err("Scripts nested too deeply: %s\n", path);
        return CALCMD_IMPORT_E_DEPTH;
    }
    try {
        std::string local(path);
        calfile_ToLocalPath(local.data());
        PRFileDesc *fd = PR_Open(local.c_str(), PR_RDONLY, 0);
        if (fd == nullptr) {
            const int e = PR_GetOSError();
            calcmd::err("Error opening file: %s  :  %s\n", path, std::strerror(e != 0 ? e : ENOENT));
            return CALCMD_IMPORT_E_OPEN;
        }
        const char *slash = std::strrchr(path, '/');
        calcmd::out("%s\nImporting commands from: %s\n%s\n", dash_line, slash != nullptr ? slash + 1 : path, dash_line);
        ++script_depth;
        run_script(tool, fd);
        --script_depth;
        if (PR_Close(fd) != PR_SUCCESS) {
            calcmd::err("Error closing file: %s  :  %s\n", path, std::strerror(PR_GetOSError()));
            return CALCMD_IMPORT_E_CLOSE;
        }
    } catch (const std::bad_alloc &) {
        script_depth = 0;
        return CALCMD_IMPORT_E_PATH;
    }
    return CALCMD_OK;
}

int calcmd_Input(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return 0;
    if (tool->scriptPath != nullptr) {
        const std::string path(tool->scriptPath);
        calcmd_Import(tool, path.c_str());
    }
    if (tool->restoreRequested != 0) {
        if (tool->restoreFn != nullptr) tool->restoreFn(tool->restorePath, tool->restoreId);
        tool->restoreRequested = 0;
    }
    if (tool->backupRequested != 0) {
        if (tool->backupFn != nullptr) tool->backupFn(tool->backupPath, tool->backupId);
        tool->backupRequested = 0;
    }
    if (tool->interactive != 0) calcmd_Prompt(tool);
    return 0;
}

int calcmd_Prompt(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return 0;
    try {
        std::string line;
        for (;;) {
            calcmd::out("%s> ", tool->program);
            std::fflush(stdout);
            if (!calcmd::read_line(PR_GetSpecialFD(PR_StandardInput), &line)) continue;
            std::string converted = local_to_utf8(line);
            if (calcmd_Cmds(tool, converted.data()) == CALCMD_QUIT) break;
        }
    } catch (const std::bad_alloc &) {
    }
    return 0;
}

int calcmd_Exit(calcmd_tool **tool) noexcept {
    if (tool != nullptr && *tool != nullptr) {
        free_tool(*tool);
        *tool = nullptr;
    }
    if (output_fd != nullptr && output_fd != std_out()) PR_Close(output_fd);
    output_fd = nullptr;
    return MEE_Terminate();
}

void calcmd_SysErrorExit(calcmd_tool *tool, int errnum) noexcept {
    calcmd::err("%s: %s\n", tool != nullptr && tool->program != nullptr ? tool->program : "", std::strerror(errnum));
    std::exit(1);
}

void calcmd_Options(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return;
    std::fflush(stdout);
    if (tool->optionsOnly == 0) {
        calcmd::out("%s [options] %s\n", tool->program, tool->usage);
        calcmd::out("\nwhere options are:\n\n");
    }
    if (tool->optionHelpFn != nullptr)
        tool->optionHelpFn();
    else
        calcmd_PrintOptions();
}

void calcmd_PrintOptions(void) noexcept {
    print_table(calcmd_GetOutputFileDescriptor(), option_help);
    std::fflush(stdout);
}

void calcmd_Commands(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return;
    if (tool->commandHelpFn != nullptr)
        tool->commandHelpFn();
    else
        calcmd_PrintCommands(tool);
}

void calcmd_PrintCommands(calcmd_tool *tool) noexcept {
    PRFileDesc *fd = calcmd_GetOutputFileDescriptor();
    print_table(fd, command_help);
    if (tool != nullptr && tool->testRig != 0) print_table(fd, test_rig_help);
}

void calcmd_SetPrompt(calcmd_tool *tool, int on) noexcept {
    if (tool != nullptr) tool->interactive = on;
}

void calcmd_ClearCmdv(calcmd_tool *tool) noexcept {
    if (tool == nullptr || tool->cmdv == nullptr) return;
    for (int i = 0; i < tool->cmdvCount; ++i) {
        PL_strfree(tool->cmdv[i]);
        tool->cmdv[i] = nullptr;
    }
    tool->cmdvCount = 0;
}

int calcmd_CmdvCount(calcmd_tool *tool) noexcept { return tool != nullptr ? tool->cmdvCount : 0; }

int calcmd_CheckArgs(calcmd_tool *tool, int n) noexcept {
    if (tool == nullptr || n < 0) return 1;
    return n >= tool->cmdvCount ? 1 : 0;
}

int calcmd_CheckCmds(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return 0;
    return (tool->interactive != 0 || tool->backupRequested != 0 || tool->restoreRequested != 0 ||
            tool->scriptPath != nullptr)
               ? 1
               : 0;
}

const char *calcmd_ReadToEOL(calcmd_tool *tool, int first) noexcept {
    static char buffer[CALCMD_LINE_SIZE];
    buffer[0] = '\0';
    if (tool == nullptr || first < 0) return buffer;
    size_t used = 0;
    for (int i = first; i < tool->cmdvCount; ++i) {
        const size_t n = std::strlen(tool->cmdv[i]);
        const size_t sep = used != 0 ? 1 : 0;
        if (used + sep + n >= sizeof buffer) break;
        if (sep != 0) buffer[used++] = ' ';
        std::memcpy(buffer + used, tool->cmdv[i], n);
        used += n;
        buffer[used] = '\0';
    }
    return buffer;
}

int calcmd_ReplaceString(char **target, const char *text) noexcept {
    if (target == nullptr) return CALCMD_E_FAIL;
    char *copy = nullptr;
    if (text != nullptr) {
        copy = PL_strdup(text);
        if (copy == nullptr) return CALCMD_E_FAIL;
    }
    if (*target != nullptr) PL_strfree(*target);
    *target = copy;
    return CALCMD_OK;
}

void calcmd_FreeString(char **target) noexcept {
    if (target == nullptr || *target == nullptr) return;
    PL_strfree(*target);
    *target = nullptr;
}

PRFileDesc *calcmd_GetOutputFileDescriptor(void) noexcept { return output_fd != nullptr ? output_fd : std_out(); }

}  // extern "C"
