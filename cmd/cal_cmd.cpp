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
#include "orvutil/platform/config.h"

#include "orvutil/cal_i18n.h"
#include "orvutil/cal_prf.h"
#include "orvutil/platform/mee.h"

namespace {

PRFileDesc *output_fd = nullptr;
int script_depth = 0;
int failed_commands = 0;

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
    if (!converted) return line;
    std::string result(converted);
    free(converted);
    return result;
}

void print_table(PRFileDesc *fd, const char *const *lines) {
    for (; *lines; ++lines) PR_fprintf(fd, "%s\n", *lines);
}

bool is_cmd(const char *token, std::string_view a, std::string_view b = {}) {
    std::string_view t(token);
    return orv::ascii_iequal(t, a) || (!b.empty() && orv::ascii_iequal(t, b));
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
    if (tool->argv) {
        for (char **a = tool->argv; *a; ++a) PL_strfree(*a);
        PR_Free(tool->argv);
    }
    if (tool->cmdv) {
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
        fflush(stdout);
        if (calcmd_Cmds(tool, line.data())) break;
    }
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
    if (!out) return -1;
    *out = nullptr;
    if (!PR_Initialized()) PR_Init(PR_USER_THREAD, PR_PRIORITY_NORMAL, 0);
    start_locale();
    failed_commands = 0;

    auto *tool = static_cast<calcmd_tool *>(PR_Calloc(1, sizeof(calcmd_tool)));
    if (!tool) return -1;
    tool->program = program ? program : "";
    tool->usage = usage ? usage : "";
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
    bool ok = tool->cmdv && calcmd_ReplaceString(&tool->buildDate, CALCMD_BUILD_DATE) == 0 &&
              calcmd_ReplaceString(&tool->dateFormat, CALCMD_DEFAULT_DATE_FORMAT) == 0;
    if (ok && argc > 0 && argv) {
        tool->argv = static_cast<char **>(PR_Calloc(static_cast<PRUint32>(argc) + 1, sizeof(char *)));
        ok = tool->argv != nullptr;
        for (int i = 0; ok && i < argc; ++i) {
            tool->argv[i] = PL_strdup(argv[i] ? argv[i] : "");
            ok = tool->argv[i] != nullptr;
        }
        tool->argc = argc;
    }
    if (!ok) {
        free_tool(tool);
        return -1;
    }
    output_fd = open_output(tool->outputDirectory);
    *out = tool;
    return 0;
}

int calcmd_Ops(calcmd_tool *tool) noexcept {
    if (!tool) return -1;
    char **argv = tool->argv;
    int argc = tool->argv ? tool->argc : 0;
    if ((argc <= 1 && tool->optionsOnly) || (argc > 1 && (strcmp(argv[1], "?") == 0 || strcmp(argv[1], "-?") == 0))) {
        calcmd_Options(tool);
        return -1;
    }
    bool saw_k = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view arg(argv[i]);
        int failed = 0;
        if (arg == "-a" && tool->adminPortEnabled) {
            failed = calcmd_SetAdminPort(tool, argv, argc, &i);
        } else if (arg == "-h" && tool->hostEnabled) {
            failed = calcmd_SetHost(tool, argv, argc, &i);
        } else if (arg == "-p" && tool->hostEnabled) {
            failed = calcmd_SetPort(tool, argv, argc, &i);
        } else if (arg == "-u" && tool->adminEnabled) {
            failed = calcmd_SetAdmin(tool, argv, argc, &i);
        } else if (arg == "-w" && tool->adminEnabled) {
            failed = calcmd_SetPassword(tool, argv, argc, &i);
        } else if (arg == "-v") {
            tool->verbose = 1;
        } else if (arg == "-#") {
            calcmd::err("\nBuild date is: %s\n", tool->buildDate);
            return -1;
        } else if (arg == "-I") {
            failed = calcmd_SetScript(tool, argv, argc, &i);
            tool->interactive = saw_k ? 1 : 0;
        } else if (arg == "-K") {
            tool->interactive = 1;
            saw_k = true;
        } else if (arg == "-9") {
            if (i + 1 < argc) ++i;
        } else if ((arg == "-B" || arg == "-R") && tool->backupEnabled) {
            if (arg == "-B") {
                failed = calcmd_SetBackup(tool, argv, argc, &i, tool->backupNeedsId);
                if (!failed) tool->backupRequested = 1;
            } else {
                failed = calcmd_SetRestore(tool, argv, argc, &i, tool->backupNeedsId);
                if (!failed) tool->restoreRequested = 1;
            }
        } else {
            int r = tool->optionFn ? tool->optionFn(argv, argc, &i) : -1;
            if (r == 1) return 0;
            if (r == -1) {
                calcmd::err("unrecognized option: %s\n\n", argv[i < argc ? i : argc - 1]);
                calcmd_Options(tool);
                return -1;
            }
            if (r != 0) return r;
        }
        if (failed) return -1;
    }
    output_fd = open_output(tool->outputDirectory);
    return 0;
}

int calcmd_Parse(calcmd_tool *tool, char *line, char **rest) noexcept {
    if (!tool) return 1;
    calcmd_ClearCmdv(tool);
    if (!line || !rest) return 1;
    *rest = nullptr;
    size_t len = strlen(line);
    while (len > 0 && orv::ascii_isspace(static_cast<unsigned char>(line[len - 1]))) line[--len] = '\0';
    if (len == 0) return 2;

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
            const char *close = static_cast<const char *>(memchr(line + pos, q, len - pos));
            size_t end = close ? static_cast<size_t>(close - line) : len;
            if (!close) calcmd::err("You forgot to close the quote...  Assuming close quote at eol.\n");
            token = unescape(std::string_view(line + pos, end - pos));
            pos = close ? end + 1 : len;
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
        if (!copy) break;
        if (tool->cmdvCount == 1) *rest = line + start;
        tool->cmdv[tool->cmdvCount++] = copy;
    }
    return 0;
}

int calcmd_Cmds(calcmd_tool *tool, char *line) noexcept {
    char *rest = nullptr;
    if (!tool || calcmd_Parse(tool, line, &rest) != 0 || tool->cmdvCount == 0) return 0;
    char **tokens = tool->cmdv;
    const char *cmd = tokens[0];
    if (cmd[0] == '#' || cmd[0] == ';' || (cmd[0] == '/' && cmd[1] == '/')) return 0;
    int argc = tool->cmdvCount;
    int index = 0;

    if (is_cmd(cmd, "q", "quit")) {
        calcmd::out("\n\n");
        return 1;
    }
    int failed = 0;
    if (tool->backupEnabled && is_cmd(cmd, "backup")) {
        failed = calcmd_SetBackup(tool, tokens, argc, &index, 0);
        if (failed == 0 && tool->backupFn) tool->backupFn(tool->backupPath, tool->backupId);
    } else if (tool->testRig && is_cmd(cmd, "date")) {
        failed = calcmd_SetDateFmt(tool);
    } else if (tool->adminEnabled && is_cmd(cmd, "admin", "administrator")) {
        failed = calcmd_SetAdmin(tool, tokens, argc, &index);
    } else if (is_cmd(cmd, "?", "help")) {
        calcmd_Commands(tool);
    } else if (tool->hostEnabled && is_cmd(cmd, "host", "hostname")) {
        failed = calcmd_SetHost(tool, tokens, argc, &index);
    } else if (is_cmd(cmd, "im", "import")) {
        failed = calcmd_SetScript(tool, tokens, argc, &index);
        if (failed == 0) {
            // The tokens are cleared by the script's own lines.
            std::string path(tool->scriptPath);
            failed = calcmd_Import(tool, path.c_str());
        }
    } else if (is_cmd(cmd, "i", "info")) {
        calcmd_Info(tool);
    } else if (tool->adminEnabled && is_cmd(cmd, "pass", "password")) {
        failed = calcmd_SetPassword(tool, tokens, argc, &index);
    } else if (tool->hostEnabled && is_cmd(cmd, "port")) {
        if (tool->adminPortEnabled)
            failed = calcmd_SetAdminPort(tool, tokens, argc, &index);
        else
            failed = calcmd_SetPort(tool, tokens, argc, &index);
    } else if (tool->backupEnabled && is_cmd(cmd, "restore")) {
        failed = calcmd_SetRestore(tool, tokens, argc, &index, 0);
        if (failed == 0 && tool->restoreFn) tool->restoreFn(tool->restorePath, tool->restoreId);
    } else if (is_cmd(cmd, "v", "verbose")) {
        tool->verbose = calcmd_OnOff(argc > 1 ? tokens[1] : nullptr);
    } else if (cmd[0] != '\0' && tool->commandFn) {
        failed = tool->commandFn(tokens) == -1;
        if (failed) calcmd::out("Unrecognized command, type \"help\" for a list\n");
    }
    if (failed) ++failed_commands;
    return 0;
}

int calcmd_FailedCommands(void) noexcept { return failed_commands; }

int calcmd_Import(calcmd_tool *tool, const char *path) noexcept {
    if (!path || !tool) return 1;
    if (tool->testRig && (strstr(path, ".js") || strstr(path, ".JS"))) {
        if (tool->scriptFn) tool->scriptFn(path);
        return 0;
    }
    if (script_depth >= CALCMD_MAX_SCRIPT_DEPTH) {
        calcmd::err("Scripts nested too deeply: %s\n", path);
        return 4;
    }
    try {
        std::string local(path);
        calfile_ToLocalPath(local.data());
        PRFileDesc *fd = PR_Open(local.c_str(), PR_RDONLY, 0);
        PRFileInfo info;
        if (fd && PR_GetOpenFileInfo(fd, &info) == PR_SUCCESS && info.type == PR_FILE_DIRECTORY) {
            // Opening a directory succeeds; reading it would not.
            PR_Close(fd);
            calcmd::err("Error opening file: %s  :  %s\n", path, strerror(EISDIR));
            return 2;
        }
        if (!fd) {
            int e = PR_GetOSError();
            calcmd::err("Error opening file: %s  :  %s\n", path, strerror(e ? e : ENOENT));
            return 2;
        }
        const char *slash = strrchr(path, '/');
        calcmd::out("%s\nImporting commands from: %s\n%s\n", dash_line, slash ? slash + 1 : path, dash_line);
        ++script_depth;
        run_script(tool, fd);
        --script_depth;
        if (PR_Close(fd) != PR_SUCCESS) {
            calcmd::err("Error closing file: %s  :  %s\n", path, strerror(PR_GetOSError()));
            return 3;
        }
    } catch (const std::bad_alloc &) {
        script_depth = 0;
        return 1;
    }
    return 0;
}

int calcmd_Input(calcmd_tool *tool) noexcept {
    if (!tool) return 0;
    if (tool->scriptPath) {
        std::string path(tool->scriptPath);
        calcmd_Import(tool, path.c_str());
    }
    if (tool->restoreRequested) {
        if (tool->restoreFn) tool->restoreFn(tool->restorePath, tool->restoreId);
        tool->restoreRequested = 0;
    }
    if (tool->backupRequested) {
        if (tool->backupFn) tool->backupFn(tool->backupPath, tool->backupId);
        tool->backupRequested = 0;
    }
    if (tool->interactive) calcmd_Prompt(tool);
    return 0;
}

int calcmd_Prompt(calcmd_tool *tool) noexcept {
    if (!tool) return 0;
    try {
        std::string line;
        for (;;) {
            calcmd::out("%s> ", tool->program);
            fflush(stdout);
            if (!calcmd::read_line(PR_GetSpecialFD(PR_StandardInput), &line)) continue;
            std::string converted = local_to_utf8(line);
            if (calcmd_Cmds(tool, converted.data())) break;
        }
    } catch (const std::bad_alloc &) {
    }
    return 0;
}

int calcmd_Exit(calcmd_tool **tool) noexcept {
    if (tool && *tool) {
        free_tool(*tool);
        *tool = nullptr;
    }
    if (output_fd && output_fd != std_out()) PR_Close(output_fd);
    output_fd = nullptr;
    return MEE_Terminate();
}

void calcmd_SysErrorExit(calcmd_tool *tool, int errnum) noexcept {
    calcmd::err("%s: %s\n", tool && tool->program ? tool->program : "", strerror(errnum));
    exit(1);
}

void calcmd_Options(calcmd_tool *tool) noexcept {
    if (!tool) return;
    fflush(stdout);
    if (!tool->optionsOnly) {
        calcmd::out("%s [options] %s\n", tool->program, tool->usage);
        calcmd::out("\nwhere options are:\n\n");
    }
    if (tool->optionHelpFn)
        tool->optionHelpFn();
    else
        calcmd_PrintOptions();
}

void calcmd_PrintOptions(void) noexcept {
    print_table(calcmd_GetOutputFileDescriptor(), option_help);
    fflush(stdout);
}

void calcmd_Commands(calcmd_tool *tool) noexcept {
    if (!tool) return;
    if (tool->commandHelpFn)
        tool->commandHelpFn();
    else
        calcmd_PrintCommands(tool);
}

void calcmd_PrintCommands(calcmd_tool *tool) noexcept {
    PRFileDesc *fd = calcmd_GetOutputFileDescriptor();
    print_table(fd, command_help);
    if (tool && tool->testRig) print_table(fd, test_rig_help);
}

void calcmd_SetPrompt(calcmd_tool *tool, int on) noexcept {
    if (tool) tool->interactive = on;
}

void calcmd_ClearCmdv(calcmd_tool *tool) noexcept {
    if (!tool || !tool->cmdv) return;
    for (int i = 0; i < tool->cmdvCount; ++i) {
        PL_strfree(tool->cmdv[i]);
        tool->cmdv[i] = nullptr;
    }
    tool->cmdvCount = 0;
}

int calcmd_CmdvCount(calcmd_tool *tool) noexcept { return tool ? tool->cmdvCount : 0; }

int calcmd_CheckArgs(calcmd_tool *tool, int n) noexcept {
    if (!tool || n < 0) return 1;
    return n >= tool->cmdvCount ? 1 : 0;
}

int calcmd_CheckCmds(calcmd_tool *tool) noexcept {
    if (!tool) return 0;
    return (tool->interactive || tool->backupRequested || tool->restoreRequested || tool->scriptPath) ? 1 : 0;
}

const char *calcmd_ReadToEOL(calcmd_tool *tool, int first) noexcept {
    static char buffer[CALCMD_LINE_SIZE];
    buffer[0] = '\0';
    if (!tool || first < 0) return buffer;
    size_t used = 0;
    for (int i = first; i < tool->cmdvCount; ++i) {
        size_t n = strlen(tool->cmdv[i]);
        size_t sep = used ? 1 : 0;
        if (used + sep + n >= sizeof buffer) break;
        if (sep) buffer[used++] = ' ';
        memcpy(buffer + used, tool->cmdv[i], n);
        used += n;
        buffer[used] = '\0';
    }
    return buffer;
}

int calcmd_ReplaceString(char **target, const char *text) noexcept {
    if (!target) return -1;
    char *copy = nullptr;
    if (text) {
        copy = PL_strdup(text);
        if (!copy) return -1;
    }
    if (*target) PL_strfree(*target);
    *target = copy;
    return 0;
}

void calcmd_FreeString(char **target) noexcept {
    if (!target || !*target) return;
    PL_strfree(*target);
    *target = nullptr;
}

PRFileDesc *calcmd_GetOutputFileDescriptor(void) noexcept { return output_fd ? output_fd : std_out(); }

}  // extern "C"
