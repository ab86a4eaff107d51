// The settings the command tool frame keeps for its tools: enabling groups,
// setters fed from an argument vector, getters, printers and small parsers.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "cal_cmd_internal.hpp"
#include "orv/ascii.hpp"
#include "orvutil/cal_cmd.h"
#include "orvutil/platform/sys.h"

namespace {

const char *or_empty(const char *s) { return s != nullptr ? s : ""; }

// The argument after *index when there is one and, unless dashes are
// allowed, it does not begin with '-'.
const char *next_value(char **argv, int argc, const int *index, bool allow_dash) {
    if (argv == nullptr || index == nullptr || *index < 0 || *index + 1 >= argc) return nullptr;
    const char *v = argv[*index + 1];
    if (v == nullptr || (!allow_dash && v[0] == '-')) return nullptr;
    return v;
}

// Stores the next argument into *field, or prints message and returns 1.
int take_text(calcmd_tool *tool, char **field, char **argv, int argc, int *index, const char *message,
              bool allow_dash = false) {
    const char *v = tool != nullptr ? next_value(argv, argc, index, allow_dash) : nullptr;
    if (v == nullptr) {
        calcmd::err("%s", message);
        return CALCMD_REFUSED;
    }
    if (calcmd_ReplaceString(field, v) != CALCMD_OK) return CALCMD_REFUSED;
    ++*index;
    return CALCMD_OK;
}

int take_port(calcmd_tool *tool, char **field, int *given, char **argv, int argc, int *index, const char *missing,
              const char *invalid) {
    const char *v = tool != nullptr ? next_value(argv, argc, index, false) : nullptr;
    if (v == nullptr) {
        calcmd::err("%s", missing);
        return CALCMD_REFUSED;
    }
    // atoi without its undefined overflow: a port is valid when it reads as
    // a positive number.
    char *end = nullptr;
    errno = 0;
    const long n = std::strtol(v, &end, 10);
    if (errno == ERANGE || n <= 0 || n > INT_MAX) {
        calcmd::err("%s", invalid);
        return CALCMD_REFUSED;
    }
    if (calcmd_ReplaceString(field, v) != CALCMD_OK) return CALCMD_REFUSED;
    *given = 1;
    ++*index;
    return CALCMD_OK;
}

int take_path(calcmd_tool *tool, char **path, char **id, char **argv, int argc, int *index, int withId) {
    if (withId == 0) return take_text(tool, path, argv, argc, index, "You must provide a path\n");
    if (tool == nullptr || argv == nullptr || index == nullptr || *index < 0 || *index + 2 >= argc ||
        argv[*index + 1] == nullptr || argv[*index + 2] == nullptr) {
        calcmd::err("You must provide a path and id\n");
        return CALCMD_REFUSED;
    }
    const std::string p(argv[*index + 1]);
    if (calcmd_ReplaceString(path, p.c_str()) != CALCMD_OK || calcmd_ReplaceString(id, argv[*index + 2]) != CALCMD_OK)
        return CALCMD_REFUSED;
    *index += 2;
    return CALCMD_OK;
}

}  // namespace

extern "C" {

void calcmd_EnableAdmin(calcmd_tool *tool, const char *admin, const char *password) noexcept {
    if (tool == nullptr) return;
    tool->adminEnabled = 1;
    if (admin != nullptr) calcmd_ReplaceString(&tool->admin, admin);
    if (password != nullptr) calcmd_ReplaceString(&tool->password, password);
}

void calcmd_EnableHost(calcmd_tool *tool, const char *host, const char *port) noexcept {
    if (tool == nullptr) return;
    tool->hostEnabled = 1;
    if (host != nullptr) calcmd_ReplaceString(&tool->host, host);
    if (port != nullptr) calcmd_ReplaceString(&tool->port, port);
}

void calcmd_EnableAdminPort(calcmd_tool *tool, const char *adminPort) noexcept {
    if (tool == nullptr) return;
    tool->adminPortEnabled = 1;
    if (adminPort != nullptr) calcmd_ReplaceString(&tool->adminPort, adminPort);
}

void calcmd_EnableBackup(calcmd_tool *tool, int needsId, calcmd_backup_fn backupFn,
                         calcmd_backup_fn restoreFn) noexcept {
    if (tool == nullptr) return;
    tool->backupEnabled = 1;
    tool->backupNeedsId = needsId;
    tool->backupFn = backupFn;
    tool->restoreFn = restoreFn;
}

int calcmd_SetScript(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool != nullptr ? &tool->scriptPath : nullptr, argv, argc, index,
                     "You must provide a script file name\n");
}

int calcmd_SetAdmin(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool != nullptr ? &tool->admin : nullptr, argv, argc, index,
                     "You must provide an administrator name\n");
}

int calcmd_SetPassword(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool != nullptr ? &tool->password : nullptr, argv, argc, index,
                     "You must provide a password\n");
}

int calcmd_SetHost(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool != nullptr ? &tool->host : nullptr, argv, argc, index,
                     "You must provide a host name\n");
}

int calcmd_SetPort(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_port(tool, tool != nullptr ? &tool->port : nullptr, tool != nullptr ? &tool->portGiven : nullptr, argv,
                     argc, index, "You must provide a port number\n", "You must provide a valid port number\n");
}

int calcmd_SetAdminPort(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_port(tool, tool != nullptr ? &tool->adminPort : nullptr,
                     tool != nullptr ? &tool->adminPortGiven : nullptr, argv, argc, index,
                     "You must provide an admin port number\n", "You must provide a valid admin port number\n");
}

int calcmd_SetOutputDirectory(calcmd_tool *tool, char **argv, int argc, int *index) noexcept {
    return take_text(tool, tool != nullptr ? &tool->outputDirectory : nullptr, argv, argc, index,
                     "You must provide a output directory\n", true);
}

int calcmd_SetBackup(calcmd_tool *tool, char **argv, int argc, int *index, int withId) noexcept {
    return take_path(tool, tool != nullptr ? &tool->backupPath : nullptr, tool != nullptr ? &tool->backupId : nullptr,
                     argv, argc, index, withId);
}

int calcmd_SetRestore(calcmd_tool *tool, char **argv, int argc, int *index, int withId) noexcept {
    return take_path(tool, tool != nullptr ? &tool->restorePath : nullptr, tool != nullptr ? &tool->restoreId : nullptr,
                     argv, argc, index, withId);
}

int calcmd_SetDateFmt(calcmd_tool *tool) noexcept {
    if (tool == nullptr || tool->cmdvCount < 2) {
        calcmd::err("You must provide a date format string\n");
        return CALCMD_REFUSED;
    }
    return calcmd_ReplaceString(&tool->dateFormat, tool->cmdv[1]) == CALCMD_OK ? CALCMD_OK : CALCMD_REFUSED;
}

const char *calcmd_GetAdmin(calcmd_tool *tool) noexcept { return tool != nullptr ? tool->admin : nullptr; }
const char *calcmd_GetPassword(calcmd_tool *tool) noexcept { return tool != nullptr ? tool->password : nullptr; }
const char *calcmd_GetHost(calcmd_tool *tool) noexcept { return tool != nullptr ? tool->host : nullptr; }
const char *calcmd_GetOutputDirectory(calcmd_tool *tool) noexcept {
    return tool != nullptr ? tool->outputDirectory : nullptr;
}
const char *calcmd_DateFmt(calcmd_tool *tool) noexcept { return tool != nullptr ? tool->dateFormat : nullptr; }
const char *calcmd_GetBuildDate(calcmd_tool *tool) noexcept { return tool != nullptr ? tool->buildDate : nullptr; }

const char *calcmd_GetPort(calcmd_tool *tool, int *given) noexcept {
    if (given != nullptr) *given = tool != nullptr ? tool->portGiven : 0;
    return tool != nullptr ? tool->port : nullptr;
}

const char *calcmd_GetAdminPort(calcmd_tool *tool, int *given) noexcept {
    if (given != nullptr) *given = tool != nullptr ? tool->adminPortGiven : 0;
    return tool != nullptr ? tool->adminPort : nullptr;
}

int calcmd_Verbose(calcmd_tool *tool) noexcept { return tool != nullptr ? tool->verbose : 0; }

void calcmd_PrintVerbose(calcmd_tool *tool) noexcept {
    calcmd::out("verbose = %s\n", calcmd_Verbose(tool) != 0 ? "on" : "off");
}

void calcmd_PrintInfo(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return;
    if (tool->hostEnabled != 0) {
        calcmd::out("host = %s\n", or_empty(tool->host));
        calcmd::out("port = %s\n", or_empty(tool->port));
    }
    if (tool->adminPortEnabled != 0) calcmd::out("admin port = %s\n", or_empty(tool->adminPort));
    if (tool->adminEnabled != 0) {
        calcmd::out("admin = %s\n", or_empty(tool->admin));
        calcmd::out("password = %s\n", or_empty(tool->password));
    }
    if (tool->testRig != 0) calcmd::out("date format = %s\n", or_empty(tool->dateFormat));
    calcmd_PrintVerbose(tool);
}

void calcmd_Info(calcmd_tool *tool) noexcept {
    if (tool == nullptr) return;
    if (tool->infoFn != nullptr)
        tool->infoFn();
    else
        calcmd_PrintInfo(tool);
}

int calcmd_OnOff(const char *text) noexcept {
    if (text == nullptr) return 0;
    return (orv::ascii_iequal(text, "on") || orv::ascii_iequal(text, "true") || orv::ascii_iequal(text, "yes")) ? 1 : 0;
}

int calcmd_SetUINT32(const char *text, unsigned int *value) noexcept {
    if (text == nullptr) return CALCMD_REFUSED;
    // The tools have always read this with "%ld": strtol is that conversion
    // without sscanf's undefined overflow (it saturates), and the long is
    // then narrowed as the old assignment did, so "-1" is 4294967295.
    char *end = nullptr;
    const long n = std::strtol(text, &end, 10);
    if (end == text) {
        calcmd::err("bad unsigned 32 bit string: %s\n", text);
        return CALCMD_REFUSED;
    }
    if (value != nullptr) *value = static_cast<unsigned int>(static_cast<unsigned long>(n));
    return CALCMD_OK;
}

time_t calcmd_ParseDate(const char *text) noexcept {
    if (text == nullptr || strnlen(text, 15) < 15) return static_cast<time_t>(-1);
    // Each field is read on its own, as if the byte after it were a NUL.
    auto field = [text](int at, int width) {
        char piece[5] = {};
        std::memcpy(piece, text + at, static_cast<size_t>(width));
        return std::atoi(piece);
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
    return std::mktime(&tm);
}

int calcmd_get_stdout_directory(calcmd_tool *, char **, int) noexcept { return 0; }

}  // extern "C"
