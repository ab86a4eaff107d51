// orvadmin's command table and the helpers its commands share.
#pragma once

#include "orvutil/cal_cmd.h"
#include "orvutil/orv_defs.h"

namespace orvadmin {

// A command: argv[0] is its name, argc counts it. Returns 0 on success, 1
// (or a status of its own, which becomes the tool's exit status) on failure
// after printing a message with fail().
using Run = int (*)(int argc, char **argv);

struct Command {
    const char *name;
    int minArgs;        // arguments needed after the name
    const char *usage;  // "name ARG..." for the help list and usage errors
    const char *help;
    Run run;
    int maxArgs = -1;  // arguments allowed after the name; -1: any number
};

// Results to the tool output; failures to standard error ("name: text\n").
void out(const char *fmt, ...) ORV_PRINTF(1, 2);
int fail(const char *command, const char *fmt, ...) ORV_PRINTF(2, 3);
// Says on standard error ("name: text\n") that part of the input is ignored,
// without failing the command.
void note(const char *command, const char *fmt, ...) ORV_PRINTF(2, 3);
// Equal ignoring ASCII case, as command and configuration names compare.
bool ascii_iequal(const char *a, const char *b);
// Why path cannot be read as a file (the system's error text; a directory
// gives EISDIR's), or NULL when it can.
const char *why_unreadable(const char *path);
// Arguments from index first on, joined by single blanks.
const char *rest_of_line(int first);

// The prompt on a terminal, with line editing and history, up to "quit" or
// Ctrl-D (prompt.cpp).
void run_prompt(calcmd_tool *tool);

// Identifiers, digests and configuration settings (ident_cmds.cpp).
int cmd_guid(int argc, char **argv);
int cmd_md5(int argc, char **argv);
int cmd_version(int argc, char **argv);
int cmd_setting(int argc, char **argv);

// Dates, durations and periods (time_cmds.cpp).
int cmd_when(int argc, char **argv);
int cmd_dur(int argc, char **argv);
int cmd_add(int argc, char **argv);
int cmd_period(int argc, char **argv);

// Calendar identifiers and encodings (text_cmds.cpp).
int cmd_calid(int argc, char **argv);
int cmd_encode(int argc, char **argv);
int cmd_decode(int argc, char **argv);

// URLs and query strings (url_cmds.cpp).
int cmd_url(int argc, char **argv);
int cmd_query(int argc, char **argv);

// Configuration files (conf_cmds.cpp).
int cmd_conf(int argc, char **argv);

// Services and processes (service_cmds.cpp).
int cmd_status(int argc, char **argv);
int cmd_wait(int argc, char **argv);
int cmd_refresh(int argc, char **argv);
int cmd_stop(int argc, char **argv);
int cmd_start(int argc, char **argv);
int cmd_ps(int argc, char **argv);

// Live counters of the instance's registry (counter_cmds.cpp).
int cmd_counters(int argc, char **argv);
// HTTP GET and raw TCP exchanges (http_cmds.cpp).
int cmd_get(int argc, char **argv);
int cmd_tcp(int argc, char **argv);
// Log files (log_cmds.cpp).
int cmd_log(int argc, char **argv);

}  // namespace orvadmin
