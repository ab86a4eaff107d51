// The settings the command tool frame keeps for its tools: enabling groups,
// setters fed from an argument vector, getters, printers and small parsers.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cal_cmd_internal.hpp"
#include "orv/ascii.hpp"
#include "orvutil/cal_cmd.h"
#include "orvutil/platform/sys.h"

namespace {

const char *or_empty(const char *s) { return s ? s : ""; }

// The argument after *index when there is one and, unless dashes are
// allowed, it does not begin with '-'.
const char *next_value(char **argv, int argc, const int *index, bool allow_dash) {
    if (!argv || !index || *index < 0 || *index + 1 >= argc) return nullptr;
    const char *v = argv[*index + 1];
    if (!v || (!allow_dash && v[0] == '-')) return nullptr;
    return v;
}

// Stores the next argument into *field, or prints message and returns 1.
int take_text(calcmd_tool *tool, char **field, char **argv, int argc, int *index, const char *message,
              bool allow_dash = false) {
    const char *v = tool ? next_value(argv, argc, index, allow_dash) : nullptr;
    if (!v) {
        calcmd::err("%s", message);
        return 1;
    }
    if (calcmd_ReplaceString(field, v) != 0) return 1;
    ++*index;
    return 0;
}

int take_port(calcmd_tool *tool, char **field, int *given, char **argv, int argc, int *index, const char *missing,
              const char *invalid) {
    const char *v = tool ? next_value(argv, argc, index, false) : nullptr;
    if (!v) {
        calcmd::err("%s", missing);
        return 1;
    }
    // atoi without its undefined overflow: a port is valid when it reads as
    // a positive number.
    char *end = nullptr;
    errno = 0;
    long n = strtol(v, &end, 10);
    if (errno == ERANGE || n <= 0 || n > INT_MAX) {
        calcmd::err("%s", invalid);
        return 1;
    }
    if (calcmd_ReplaceString(field, v) != 0) return 1;
    *given = 1;
    ++*index;
    return 0;
}

int take_path(calcmd_tool *tool, char **path, char **id, char **argv, int argc, int *index, int withId) {
    if (!withId) return take_text(tool, path, argv, argc, index, "You must provide a path\n");
    if (!tool || !argv || !index || *index < 0 || *index + 2 >= argc || !argv[*index + 1] || !argv[*index + 2]) {
        calcmd::err("You must provide a path and id\n");
        return 1;
    }
    std::string p(argv[*index + 1]);
    if (calcmd_ReplaceString(path, p.c_str()) != 0 || calcmd_ReplaceString(id, argv[*index + 2]) != 0) return 1;
    *index += 2;
    return 0;
}

}  // namespace

extern "C" {

void calcmd_EnableAdmin(calcmd_tool *tool, const char *admin, const char *password) noexcept {
    if (!tool) return;
    tool->adminEnabled = 1;
    if (admin) calcmd_ReplaceString(&tool->admin, admin);
    if (password) calcmd_ReplaceString(&tool->password, password);
}

void calcmd_EnableHost(calcmd_tool *tool, const char *host, const char *port) noexcept {
    if (!tool) return;
    tool->hostEnabled = 1;
    if (host) calcmd_ReplaceString(&tool->host, host);
    if (port) calcmd_ReplaceString(&tool->port, port);
}

void calcmd_EnableAdminPort(calcmd_tool *tool, const char *adminPort) noexcept {
    if (!tool) return;
    tool->adminPortEnabled = 1;
    if (adminPort) calcmd_ReplaceString(&tool->adminPort, adminPort);
}

void calcmd_EnableBackup(calcmd_tool *tool, int needsId, calcmd_backup_fn backupFn,
                         calcmd_backup_fn restoreFn) noexcept {
    if (!tool) return;
    tool->backupEnabled = 1;
    tool->backupNeedsId = needsId;
    tool->backupFn = backupFn;
    tool->restoreFn = restoreFn;
}

int calcmd_SetScript(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool ? &tool->scriptPath : nullptr, argv, argc, index,
                     "You must provide a script file name\n");
}

int calcmd_SetAdmin(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool ? &tool->admin : nullptr, argv, argc, index,
                     "You must provide an administrator name\n");
}

int calcmd_SetPassword(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool ? &tool->password : nullptr, argv, argc, index, "You must provide a password\n");
}

int calcmd_SetHost(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool ? &tool->host : nullptr, argv, argc, index, "You must provide a host name\n");
}

int calcmd_SetPort(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_port(tool, tool ? &tool->port : nullptr, tool ? &tool->portGiven : nullptr, argv, argc, index,
                     "You must provide a port number\n", "You must provide a valid port number\n");
}

int calcmd_SetAdminPort(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_port(tool, tool ? &tool->adminPort : nullptr, tool ? &tool->adminPortGiven : nullptr, argv, argc, index,
                     "You must provide an admin port number\n", "You must provide a valid admin port number\n");
}

int calcmd_SetOutputDirectory(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool ? &tool->outputDirectory : nullptr, argv, argc, index,
                     "You must provide a output directory\n", true);
}

int calcmd_SetBackup(calcmd_tool *tool, char **argv, int argc, int *index, int withId) noexcept {
    return take_path(tool, tool ? &tool->backupPath : nullptr, tool ? &tool->backupId : nullptr, argv, argc, index,
                     withId);
}

int calcmd_SetRestore(calcmd_tool *tool, char **argv, int argc, int *index, int withId) noexcept {
    return take_path(tool, tool ? &tool->restorePath : nullptr, tool ? &tool->restoreId : nullptr, argv, argc, index,
                     withId);
}

int calcmd_SetDateFmt(calcmd_tool *tool) noexcept {
    if (!tool || tool->cmdvCount < 2) {
        calcmd::err("You must provide a date format string\n");
        return 1;
    }
    return calcmd_ReplaceString(&tool->dateFormat, tool->cmdv[1]) == 0 ? 0 : 1;
}

const char *calcmd_GetAdmin(calcmd_tool *tool) noexcept { return tool ? tool->admin : nullptr; }
const char *calcmd_GetPassword(calcmd_tool *tool) noexcept { return tool ? tool->password : nullptr; }
const char *calcmd_GetHost(calcmd_tool *tool) noexcept { return tool ? tool->host : nullptr; }
const char *calcmd_GetOutputDirectory(calcmd_tool *tool) noexcept { return tool ? tool->outputDirectory : nullptr; }
const char *calcmd_DateFmt(calcmd_tool *tool) noexcept { return tool ? tool->dateFormat : nullptr; }
const char *calcmd_GetBuildDate(calcmd_tool *tool) noexcept { return tool ? tool->buildDate : nullptr; }

const char *calcmd_GetPort(calcmd_tool *tool, int *given) noexcept {
    if (given) *given = tool ? tool->portGiven : 0;
    return tool ? tool->port : nullptr;
}

const char *calcmd_GetAdminPort(calcmd_tool *tool, int *given) noexcept {
    if (given) *given = tool ? tool->adminPortGiven : 0;
    return tool ? tool->adminPort : nullptr;
}

int calcmd_Verbose(calcmd_tool *tool) noexcept { return tool ? tool->verbose : 0; }

void calcmd_PrintVerbose(calcmd_tool *tool) noexcept {
    calcmd::out("verbose = %s\n", calcmd_Verbose(tool) ? "on" : "off");
}

void calcmd_PrintInfo(calcmd_tool *tool) noexcept {
    if (!tool) return;
    if (tool->hostEnabled) {
        calcmd::out("host = %s\n", or_empty(tool->host));
        calcmd::out("port = %s\n", or_empty(tool->port));
    }
    if (tool->adminPortEnabled) calcmd::out("admin port = %s\n", or_empty(tool->adminPort));
    if (tool->adminEnabled) {
        calcmd::out("admin = %s\n", or_empty(tool->admin));
        calcmd::out("password = %s\n", or_empty(tool->password));
    }
    if (tool->testRig) calcmd::out("date format = %s\n", or_empty(tool->dateFormat));
    calcmd_PrintVerbose(tool);
}

void calcmd_Info(calcmd_tool *tool) noexcept {
    if (!tool) return;
    if (tool->infoFn)
        tool->infoFn();
    else
        calcmd_PrintInfo(tool);
}

int calcmd_OnOff(const char *text) noexcept {
    if (!text) return 0;
    return (orv::ascii_iequal(text, "on") || orv::ascii_iequal(text, "true") || orv::ascii_iequal(text, "yes")) ? 1 : 0;
}

int calcmd_SetUINT32(const char *text, unsigned int *value) noexcept {
    if (text == nullptr) return 1;
    // The tools have always read this with "%ld": strtol is that conversion
    // without sscanf's undefined overflow (it saturates), and the long is
    // then narrowed as the old assignment did, so "-1" is 4294967295.
    char *end = nullptr;
    const long n = std::strtol(text, &end, 10);
    if (end == text) {
        calcmd::err("bad unsigned 32 bit string: %s\n", text);
        return 1;
    }
    if (value != nullptr) *value = static_cast<unsigned int>(static_cast<unsigned long>(n));
    return 0;
}

time_t calcmd_ParseDate(const char *text) noexcept {
    if (!text || strnlen(text, 15) < 15) return static_cast<time_t>(-1);
    // Each field is read on its own, as if the byte after it were a NUL.
    auto field = [text](int at, int width) {
        char piece[5] = {};
        memcpy(piece, text + at, static_cast<size_t>(width));
        return atoi(piece);
    };
    struct tm tm {};
    tm.tm_year = field(0, 4) - 1900;
    tm.tm_mon = field(4, 2) - 1;
    tm.tm_mday = field(6, 2);
    tm.tm_hour = field(9, 2);
    tm.tm_min = field(11, 2);
    tm.tm_sec = field(13, 2);
    tm.tm_isdst = 0;
    if (text[15] == 'Z') return mkgmtime(&tm);
    return mktime(&tm);
}

int calcmd_get_stdout_directory(calcmd_tool *, char **, int) noexcept { return 0; }

}  // extern "C"
