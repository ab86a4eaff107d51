/*
 * The command tool frame shared by the administration tools: a tool context
 * built from the command line, the common options, a tokenizer, the common
 * commands, script import and the interactive prompt, plus the settings the
 * frame keeps for its tools (host, port, administrator, ...).
 *
 * A tool runs:
 *
 *     calcmd_tool *tool = NULL;
 *     calcmd_Init(&tool, "mytool", "[file]", argc, argv, 0, 0,
 *                 my_options, NULL, my_commands, NULL, NULL, NULL);
 *     calcmd_EnableHost(tool, "localhost", "80");     (optional groups)
 *     if (calcmd_Ops(tool) == 0) {
 *         calcmd_SetPrompt(tool, isatty(0));       (see calcmd_Prompt)
 *         calcmd_Input(tool);                      (script, then prompt)
 *     }
 *     calcmd_Exit(&tool);
 *
 * Output: the help, info, import banner, script echo and the
 * "Unrecognized command" texts go to the tool output descriptor
 * (calcmd_GetOutputFileDescriptor: standard output, or a profiling file
 * when an output directory is set); every other message of the frame goes to
 * standard error.
 *
 * Memory: every text setting is an owned NUL-terminated string allocated
 * with PL_strdup and freed with PL_strfree (calcmd_ReplaceString and
 * calcmd_FreeString do both); getters return borrowed pointers that stay
 * valid until the setting changes or calcmd_Exit. The context itself is
 * allocated by calcmd_Init and released by calcmd_Exit only.
 *
 * Threads: one tool context per process; the output descriptor, the nesting
 * depth of scripts and the text buffer of calcmd_ReadToEOL are process-wide
 * and not locked.
 *
 * Bounds:
 * - a command line holds at most CALCMD_TOKEN_CAPACITY tokens; the tokens
 *   after that are dropped with "Too many tokens; the rest of the line is
 *   ignored\n" on standard error;
 * - lines read from scripts and from standard input hold at most
 *   CALCMD_LINE_SIZE - 1 bytes; the rest of a longer line is discarded with
 *   "Line too long; the rest of it is ignored\n" on standard error (it is
 *   never run as a command of its own);
 * - scripts importing scripts stop at a depth of CALCMD_MAX_SCRIPT_DEPTH with
 *   "Scripts nested too deeply: %s\n" on standard error, so a script that
 *   imports itself ends instead of exhausting the stack;
 * - calcmd_ReadToEOL fills a CALCMD_LINE_SIZE buffer and stops at the last
 *   whole token that fits.
 */
#ifndef ORVUTIL_CAL_CMD_H
#define ORVUTIL_CAL_CMD_H

#include <prio.h>
#include <time.h>
#include "orv_defs.h"

ORV_BEGIN_DECLS

#define CALCMD_TOKEN_CAPACITY      10240
#define CALCMD_LINE_SIZE           10240
#define CALCMD_MAX_SCRIPT_DEPTH    64
#define CALCMD_BUILD_DATE          "Feb  9 2005"
#define CALCMD_DEFAULT_DATE_FORMAT "%d-%b-%y %I:%M%p "

/* Status values of the family. */
#define CALCMD_OK      0
#define CALCMD_E_FAIL  (-1) /* calcmd_Init, calcmd_Ops, calcmd_ReplaceString */
#define CALCMD_REFUSED 1    /* a setter or small parser refused its value */
/* Option callback results besides CALCMD_OK (go on). */
#define CALCMD_OPTIONS_DONE   1    /* end option parsing with success */
#define CALCMD_E_UNRECOGNISED (-1) /* option or command not recognised */
/* calcmd_Cmds after "quit". */
#define CALCMD_QUIT 1
/* calcmd_Parse. */
#define CALCMD_PARSE_E_ARG   1
#define CALCMD_PARSE_E_BLANK 2
/* calcmd_Import. */
#define CALCMD_IMPORT_E_PATH  1
#define CALCMD_IMPORT_E_OPEN  2
#define CALCMD_IMPORT_E_CLOSE 3
#define CALCMD_IMPORT_E_DEPTH 4

/* The tool's own options: argv and argc of the command line and the index of
 * the argument to look at; advance *index over arguments consumed. Return
 * CALCMD_OK to go on, CALCMD_OPTIONS_DONE to end option parsing with
 * success, CALCMD_E_UNRECOGNISED when the argument is not recognised,
 * anything else to stop calcmd_Ops with that value. */
typedef int (*calcmd_option_fn)(char **argv, int argc, int *index);
/* The tool's own commands: the token vector (NULL-terminated, token 0 is the
 * command name). Return CALCMD_E_UNRECOGNISED when the command is not
 * recognised. */
typedef int (*calcmd_command_fn)(char **tokens);
/* Help texts and the info printer. */
typedef void (*calcmd_print_fn)(void);
/* Backup and restore runners: (path, id); id may be NULL. */
typedef void (*calcmd_backup_fn)(const char *path, const char *id);
/* Runner of ".js" scripts in test-rig mode. */
typedef void (*calcmd_script_fn)(const char *path);

/* The tool context. Read it through the getters; the fields are public so
 * that a tool can inspect them, not to be written directly. */
typedef struct calcmd_tool {
    const char *program; /* borrowed: prompt, usage line */
    const char *usage;   /* borrowed: text after "[options]" */
    char *buildDate;     /* owned copy of CALCMD_BUILD_DATE */
    char **argv;         /* owned copy, NULL-terminated */
    int argc;
    calcmd_option_fn optionFn;
    calcmd_print_fn optionHelpFn;
    calcmd_command_fn commandFn;
    calcmd_print_fn commandHelpFn;
    calcmd_print_fn infoFn;
    calcmd_backup_fn backupFn;
    calcmd_backup_fn restoreFn;
    calcmd_script_fn scriptFn;
    char **cmdv;      /* CALCMD_TOKEN_CAPACITY + 1 entries, NULL after the last token */
    int cmdvCapacity; /* CALCMD_TOKEN_CAPACITY */
    int cmdvCount;
    char *dateFormat;
    char *scriptPath;
    char *admin;
    char *password;
    char *host;
    char *port;
    char *adminPort;
    char *backupPath;
    char *restorePath;
    char *backupId;
    char *restoreId;
    char *outputDirectory;
    int optionsOnly;
    int interactive;
    int testRig;
    int verbose;
    int adminEnabled;
    int hostEnabled;
    int adminPortEnabled;
    int backupRequested;
    int restoreRequested;
    int backupEnabled;
    int backupNeedsId;
    int portGiven;
    int adminPortGiven;
} calcmd_tool;

/* ---- the loop ---------------------------------------------------------- */

/* Starts NSPR and the locale library, allocates the context into *tool and
 * copies argv. interactive sets both the interactive and the test-rig flag.
 * Returns 0; CALCMD_E_FAIL (and *tool NULL) for a NULL tool pointer or when
 * memory runs out. */
ORV_API int calcmd_Init(calcmd_tool **tool, const char *program, const char *usage, int argc, char **argv,
                        int interactive, int optionsOnly, calcmd_option_fn optionFn, calcmd_print_fn optionHelpFn,
                        calcmd_command_fn commandFn, calcmd_print_fn commandHelpFn, calcmd_print_fn infoFn,
                        calcmd_script_fn scriptFn) ORV_NOEXCEPT;
/* Parses the command line: 0 to go on; CALCMD_E_FAIL to stop (help or build
 * date shown, or a bad option, message on standard error); or the option
 * callback's own result. */
ORV_API int calcmd_Ops(calcmd_tool *tool) ORV_NOEXCEPT;
/* Runs the script, then a requested restore, then a requested backup, then
 * the prompt when interactive. Returns 0. */
ORV_API int calcmd_Input(calcmd_tool *tool) ORV_NOEXCEPT;
/* Prompt loop on standard input; returns 0 only after "quit". End of input
 * does not end it, as designed: the prompt is shown again at once, so at
 * the end of a pipe or a file the loop spins at full CPU for ever. Turn the
 * prompt on only when standard input is a terminal (calcmd_SetPrompt(tool,
 * isatty(0)) before calcmd_Input) and read other input yourself, line by
 * line through calcmd_Cmds, up to its end. Each line
 * is converted from the character set of the C locale's LC_CTYPE to UTF-8
 * (MEE_LocalToUTF8); a line that does not convert is run as typed. */
ORV_API int calcmd_Prompt(calcmd_tool *tool) ORV_NOEXCEPT;
/* Runs one command line (modified in place). Returns CALCMD_QUIT after
 * "quit", else 0 (also when the command failed). */
ORV_API int calcmd_Cmds(calcmd_tool *tool, char *line) ORV_NOEXCEPT;
/* The number of command lines that failed since calcmd_Init: a common
 * command that refused its argument (host, port, admin, password, date,
 * backup, restore, import without a script), an import whose script could
 * not be run, and a line the tool's command callback did not recognise (it
 * returned -1). calcmd_Cmds itself returns 0 for them, as the loop goes on;
 * tools read this for their exit status. Failures inside the tool's own
 * commands are the tool's to count. */
ORV_API int calcmd_FailedCommands(void) ORV_NOEXCEPT;
/* Tokenizes line (trailing white space is cut in place). *rest receives the
 * raw text from the second token on, or NULL. Returns 0; CALCMD_PARSE_E_ARG
 * for a NULL tool, line or rest; CALCMD_PARSE_E_BLANK for a blank line. */
ORV_API int calcmd_Parse(calcmd_tool *tool, char *line, char **rest) ORV_NOEXCEPT;
/* Runs a script. Returns 0; CALCMD_IMPORT_E_PATH for a NULL path (or when
 * memory runs out); CALCMD_IMPORT_E_OPEN when it cannot be opened
 * or is a directory;
 * CALCMD_IMPORT_E_CLOSE when it cannot be closed; CALCMD_IMPORT_E_DEPTH when
 * scripts are nested too deeply. */
ORV_API int calcmd_Import(calcmd_tool *tool, const char *path) ORV_NOEXCEPT;
/* Frees the context, sets *tool to NULL, closes the output descriptor when
 * it is not standard output and stops the locale library; returns the
 * latter's result. */
ORV_API int calcmd_Exit(calcmd_tool **tool) ORV_NOEXCEPT;
/* Prints "%s: %s\n" (program, system error text of err) to standard error
 * and ends the process with status 1. */
ORV_API void calcmd_SysErrorExit(calcmd_tool *tool, int err) ORV_NOEXCEPT;

ORV_API void calcmd_Options(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API void calcmd_PrintOptions(void) ORV_NOEXCEPT;
ORV_API void calcmd_Commands(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API void calcmd_PrintCommands(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API void calcmd_SetPrompt(calcmd_tool *tool, int on) ORV_NOEXCEPT;
ORV_API void calcmd_ClearCmdv(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API int calcmd_CmdvCount(calcmd_tool *tool) ORV_NOEXCEPT;
/* 1 when any of tokens 0..n is missing, else 0. */
ORV_API int calcmd_CheckArgs(calcmd_tool *tool, int n) ORV_NOEXCEPT;
/* 1 when something is left to do (interactive, backup or restore requested,
 * script set), else 0. */
ORV_API int calcmd_CheckCmds(calcmd_tool *tool) ORV_NOEXCEPT;
/* Tokens from index first on, joined by single blanks, in a process-wide
 * buffer of CALCMD_LINE_SIZE bytes (overwritten by the next call). */
ORV_API const char *calcmd_ReadToEOL(calcmd_tool *tool, int first) ORV_NOEXCEPT;
/* *target := copy of text (NULL text frees and nulls). 0, or CALCMD_E_FAIL
 * when memory runs out (the old text is then kept). */
ORV_API int calcmd_ReplaceString(char **target, const char *text) ORV_NOEXCEPT;
ORV_API void calcmd_FreeString(char **target) ORV_NOEXCEPT;
ORV_API PRFileDesc *calcmd_GetOutputFileDescriptor(void) ORV_NOEXCEPT;

/* ---- settings ---------------------------------------------------------- */

ORV_API void calcmd_EnableAdmin(calcmd_tool *tool, const char *admin, const char *password) ORV_NOEXCEPT;
ORV_API void calcmd_EnableHost(calcmd_tool *tool, const char *host, const char *port) ORV_NOEXCEPT;
ORV_API void calcmd_EnableAdminPort(calcmd_tool *tool, const char *adminPort) ORV_NOEXCEPT;
ORV_API void calcmd_EnableBackup(calcmd_tool *tool, int needsId, calcmd_backup_fn backupFn,
                                 calcmd_backup_fn restoreFn) ORV_NOEXCEPT;

/* Setters take argv[*index + 1] (and the one after for ids), advance *index
 * over what they take and return 0, or print their message on standard error
 * and return CALCMD_REFUSED changing nothing. A value beginning with '-' is
 * refused, except for the output directory and for the path and id that the
 * backup and restore setters take together (withId non-zero): those are
 * refused only when missing. A port is valid when atoi() of it is positive;
 * the text is stored. */
ORV_API int calcmd_SetScript(calcmd_tool *tool, char **argv, int argc, int *index) ORV_NOEXCEPT;
ORV_API int calcmd_SetAdmin(calcmd_tool *tool, char **argv, int argc, int *index) ORV_NOEXCEPT;
ORV_API int calcmd_SetPassword(calcmd_tool *tool, char **argv, int argc, int *index) ORV_NOEXCEPT;
ORV_API int calcmd_SetHost(calcmd_tool *tool, char **argv, int argc, int *index) ORV_NOEXCEPT;
ORV_API int calcmd_SetPort(calcmd_tool *tool, char **argv, int argc, int *index) ORV_NOEXCEPT;
ORV_API int calcmd_SetAdminPort(calcmd_tool *tool, char **argv, int argc, int *index) ORV_NOEXCEPT;
ORV_API int calcmd_SetOutputDirectory(calcmd_tool *tool, char **argv, int argc, int *index) ORV_NOEXCEPT;
ORV_API int calcmd_SetBackup(calcmd_tool *tool, char **argv, int argc, int *index, int withId) ORV_NOEXCEPT;
ORV_API int calcmd_SetRestore(calcmd_tool *tool, char **argv, int argc, int *index, int withId) ORV_NOEXCEPT;
/* Date format := second token of the current command line. */
ORV_API int calcmd_SetDateFmt(calcmd_tool *tool) ORV_NOEXCEPT;

ORV_API const char *calcmd_GetAdmin(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API const char *calcmd_GetPassword(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API const char *calcmd_GetHost(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API const char *calcmd_GetOutputDirectory(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API const char *calcmd_DateFmt(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API const char *calcmd_GetBuildDate(calcmd_tool *tool) ORV_NOEXCEPT;
/* The port text; *given (when not NULL) receives the given-on-the-command-
 * line flag. */
ORV_API const char *calcmd_GetPort(calcmd_tool *tool, int *given) ORV_NOEXCEPT;
ORV_API const char *calcmd_GetAdminPort(calcmd_tool *tool, int *given) ORV_NOEXCEPT;
ORV_API int calcmd_Verbose(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API void calcmd_PrintVerbose(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API void calcmd_PrintInfo(calcmd_tool *tool) ORV_NOEXCEPT;
ORV_API void calcmd_Info(calcmd_tool *tool) ORV_NOEXCEPT;

/* 1 for "on", "true" or "yes" in any case; 0 for anything else and NULL. */
ORV_API int calcmd_OnOff(const char *text) ORV_NOEXCEPT;
/* Reads a number as sscanf's "%ld" does (leading blanks, a sign, text after
 * the digits ignored) and stores it cut to 32 bits: "-1" stores 4294967295,
 * "7x" stores 7, a number beyond the range of long saturates before the cut.
 * 0; 1 for NULL text, and for text with no number at all after printing
 * "bad unsigned 32 bit string: %s\n" on standard error. */
ORV_API int calcmd_SetUINT32(const char *text, unsigned int *value) ORV_NOEXCEPT;
/* YYYYMMDDTHHMMSS[Z] to a time value: with 'Z' as UTC, else as local time
 * (daylight saving taken as not in force). Fields are read by position
 * without validation; a NULL text or one shorter than 15 bytes gives -1. */
ORV_API time_t calcmd_ParseDate(const char *text) ORV_NOEXCEPT;
/* Reserved: changes nothing, returns 0. */
ORV_API int calcmd_get_stdout_directory(calcmd_tool *tool, char **argv, int argc) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_CMD_H */
