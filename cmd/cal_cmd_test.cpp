#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/cal_cmd.h"

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

std::vector<std::string> seen_commands;
std::vector<std::string> seen_calls;

int command_cb(char **tokens) {
    std::string joined;
    for (char **t = tokens; *t; ++t) joined += std::string(joined.empty() ? "" : "|") + *t;
    seen_commands.push_back(joined);
    return std::strcmp(tokens[0], "known") == 0 ? 0 : -1;
}

// Takes "-o DIR" (through the frame's setter), "-stop" ends parsing, "-x"
// asks to stop with 7.
calcmd_tool *current = nullptr;
int option_cb(char **argv, int argc, int *index) {
    std::string a = argv[*index];
    if (a == "-o") return calcmd_SetOutputDirectory(current, argv, argc, index) == 0 ? 0 : 5;
    if (a == "-stop") return 1;
    if (a == "-x") return 7;
    return -1;
}

void backup_cb(const char *path, const char *id) {
    seen_calls.push_back(std::string("backup ") + (path ? path : "-") + " " + (id ? id : "-"));
}
void restore_cb(const char *path, const char *id) {
    seen_calls.push_back(std::string("restore ") + (path ? path : "-") + " " + (id ? id : "-"));
}
void script_cb(const char *path) { seen_calls.push_back(std::string("js ") + path); }

// A tool over the given arguments (program name first), with groups on.
struct Tool {
    calcmd_tool *t = nullptr;
    std::vector<std::string> args;
    explicit Tool(std::vector<std::string> a, int interactive = 0, int optionsOnly = 0, bool groups = true)
        : args(std::move(a)) {
        std::vector<char *> argv;
        for (auto &s : args) argv.push_back(s.data());
        argv.push_back(nullptr);
        EXPECT_EQ(0, calcmd_Init(&t, "tool", "file...", static_cast<int>(args.size()), argv.data(), interactive,
                                 optionsOnly, option_cb, nullptr, command_cb, nullptr, nullptr, script_cb));
        current = t;
        if (groups) {
            calcmd_EnableHost(t, "localhost", "80");
            calcmd_EnableAdmin(t, nullptr, nullptr);
            calcmd_EnableBackup(t, 0, backup_cb, restore_cb);
        }
        seen_commands.clear();
        seen_calls.clear();
    }
    ~Tool() {
        EXPECT_EQ(0, calcmd_Exit(&t));
        EXPECT_EQ(nullptr, t);
    }
    // Runs one command line; returns what went to standard output and error.
    int run(const std::string &line, std::string *out = nullptr, std::string *err = nullptr) {
        std::string copy = line;
        CaptureStdout();
        CaptureStderr();
        int r = calcmd_Cmds(t, copy.data());
        std::string o = GetCapturedStdout();
        std::string e = GetCapturedStderr();
        if (out) *out = o;
        if (err) *err = e;
        return r;
    }
    std::vector<std::string> tokens() const {
        std::vector<std::string> v;
        for (int i = 0; i < t->cmdvCount; ++i) v.emplace_back(t->cmdv[i]);
        return v;
    }
};

std::string str(const char *s) { return s ? s : "(null)"; }

TEST(CalCmdOptions, Table) {
    struct Case {
        std::vector<std::string> args;
        int result;
        const char *err;  // expected on standard error (substring), "" for nothing
        const char *host, *port, *admin, *script;
        int verbose, interactive;
    };
    const Case cases[] = {
        {{"t"}, 0, "", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-h", "srv", "-p", "08", "-u", "root"}, 0, "", "srv", "08", "root", nullptr, 0, 0},
        {{"t", "-9", "x", "-v"}, 0, "", "localhost", "80", nullptr, nullptr, 1, 0},
        {{"t", "-9"}, 0, "", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-h"}, -1, "You must provide a host name\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-h", "-v"}, -1, "You must provide a host name\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-p", "0"}, -1, "You must provide a valid port number\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-p", "x"}, -1, "You must provide a valid port number\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-p", "-1"}, -1, "You must provide a port number\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-p", "99999999999"}, -1, "valid port", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-I", "s.txt"}, 0, "", "localhost", "80", nullptr, "s.txt", 0, 0},
        {{"t", "-K", "-I", "s.txt"}, 0, "", "localhost", "80", nullptr, "s.txt", 0, 1},
        {{"t", "-I", "s.txt", "-K"}, 0, "", "localhost", "80", nullptr, "s.txt", 0, 1},
        {{"t", "-I"}, -1, "You must provide a script file name\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-#"}, -1, "\nBuild date is: Feb  9 2005\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-zz"}, -1, "unrecognized option: -zz\n\n", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-stop", "-zz"}, 0, "", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-x"}, 7, "", "localhost", "80", nullptr, nullptr, 0, 0},
        {{"t", "-w"}, -1, "You must provide a password\n", "localhost", "80", nullptr, nullptr, 0, 0},
    };
    for (const auto &c : cases) {
        std::string label;
        for (auto &a : c.args) label += a + " ";
        SCOPED_TRACE(label);
        Tool tool(c.args);
        CaptureStdout();
        CaptureStderr();
        EXPECT_EQ(c.result, calcmd_Ops(tool.t));
        GetCapturedStdout();
        std::string err = GetCapturedStderr();
        if (*c.err) {
            EXPECT_NE(std::string::npos, err.find(c.err)) << err;
        } else {
            EXPECT_EQ("", err);
        }
        EXPECT_EQ(str(c.host), str(calcmd_GetHost(tool.t)));
        EXPECT_EQ(str(c.port), str(calcmd_GetPort(tool.t, nullptr)));
        EXPECT_EQ(str(c.admin), str(calcmd_GetAdmin(tool.t)));
        EXPECT_EQ(str(c.script), str(tool.t->scriptPath));
        EXPECT_EQ(c.verbose, calcmd_Verbose(tool.t));
        EXPECT_EQ(c.interactive, tool.t->interactive);
    }
}

TEST(CalCmdOptions, HelpAndGroupsOff) {
    {
        Tool tool({"t", "-?"});
        CaptureStdout();
        EXPECT_EQ(-1, calcmd_Ops(tool.t));
        EXPECT_EQ(
            "tool [options] file...\n\nwhere options are:\n\n"
            "-#                           - build date\n"
            "-v                           - verbose mode\n"
            "-I script                    - import commands from script\n"
            "-K                           - interactive mode\n",
            GetCapturedStdout());
    }
    {
        Tool tool({"t"}, 0, 1);  // options-only: no usage header
        CaptureStdout();
        EXPECT_EQ(-1, calcmd_Ops(tool.t));
        EXPECT_EQ(0u, GetCapturedStdout().find("-#"));
    }
    {
        // Without the host group "-h" is the tool's business (and unknown).
        Tool tool({"t", "-h", "x"}, 0, 0, false);
        CaptureStdout();
        CaptureStderr();
        EXPECT_EQ(-1, calcmd_Ops(tool.t));
        GetCapturedStdout();
        EXPECT_EQ(0u, GetCapturedStderr().find("unrecognized option: -h\n"));
    }
}

TEST(CalCmdOptions, BackupWithIds) {
    struct Case {
        std::vector<std::string> args;
        int result;
        const char *err;
    };
    const Case cases[] = {
        {{"t", "-B", "/path"}, -1, "You must provide a path and id\n"},
        {{"t", "-B", "/path", "7"}, 0, ""},
        {{"t", "-R", "/r", "8", "-B", "/b", "9"}, 0, ""},
    };
    for (const auto &c : cases) {
        Tool tool(c.args);
        calcmd_EnableBackup(tool.t, 1, backup_cb, restore_cb);
        CaptureStderr();
        EXPECT_EQ(c.result, calcmd_Ops(tool.t));
        EXPECT_EQ(c.err, GetCapturedStderr());
        if (c.result == 0) {
            CaptureStdout();
            calcmd_Input(tool.t);
            GetCapturedStdout();
        }
    }
    // Restore runs before backup.
    EXPECT_EQ((std::vector<std::string>{"restore /r 8", "backup /b 9"}), seen_calls);
}

TEST(CalCmdTokenizer, Table) {
    struct Case {
        const char *line;
        int result;
        std::vector<std::string> tokens;
        const char *rest;
        bool warns;
    };
    const Case cases[] = {
        {"", 2, {}, nullptr, false},
        {" \t\r\n", 2, {}, nullptr, false},
        {"one", 0, {"one"}, nullptr, false},
        {"  host \"my server\"  ", 0, {"host", "my server"}, "my server\"", false},
        {"x 'a\\tb'", 0, {"x", "atb"}, "a\\tb'", false},
        {"x \"a\\nb\\rc\\fd\\\\e\"", 0, {"x", "a\nb\rc\fd\\e"}, nullptr, false},
        {"x \"open ended", 0, {"x", "open ended"}, "open ended", true},
        {"a\tb\rc d", 0, {"a", "b", "c", "d"}, "b\rc d", false},
        {"a\vb c", 0, {"a\vb", "c"}, "c", false},
        {"say \"it's\" 'x'", 0, {"say", "it's", "x"}, "it's\" 'x'", false},
        {"\"\" y", 0, {"", "y"}, "y", false},
        {"bin \x01\x7f\xff", 0, {"bin", "\x01\x7f\xff"}, "\x01\x7f\xff", false},
    };
    Tool tool({"t"});
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        std::string line = c.line;
        char *rest = reinterpret_cast<char *>(1);
        CaptureStderr();
        EXPECT_EQ(c.result, calcmd_Parse(tool.t, line.data(), &rest));
        std::string err = GetCapturedStderr();
        EXPECT_EQ(c.warns ? "You forgot to close the quote...  Assuming close quote at eol.\n" : "", err);
        EXPECT_EQ(c.tokens, tool.tokens());
        if (c.result == 2) continue;
        if (c.rest) {
            EXPECT_EQ(std::string(c.rest), str(rest));
        } else if (c.tokens.size() < 2) {
            EXPECT_EQ(nullptr, rest);
        }
    }
    char *rest = nullptr;
    EXPECT_EQ(1, calcmd_Parse(tool.t, nullptr, &rest));
    std::string l = "x";
    EXPECT_EQ(1, calcmd_Parse(tool.t, l.data(), nullptr));
}

// "t" and the number, appended: GCC 12 at -O3 warns falsely on "t" + string.
std::string token_name(int i) {
    std::string name = "t";
    name += std::to_string(i);
    return name;
}

TEST(CalCmdTokenizer, CapacityBound) {
    Tool tool({"t"});
    for (int extra : {0, 1, 50}) {
        std::string line;
        for (int i = 0; i < CALCMD_TOKEN_CAPACITY + extra; ++i) line += token_name(i) + " ";
        char *rest = nullptr;
        CaptureStderr();
        EXPECT_EQ(0, calcmd_Parse(tool.t, line.data(), &rest));
        EXPECT_EQ(extra ? "Too many tokens; the rest of the line is ignored\n" : "", GetCapturedStderr());
        ASSERT_EQ(CALCMD_TOKEN_CAPACITY, calcmd_CmdvCount(tool.t));
        EXPECT_STREQ("t10239", tool.t->cmdv[CALCMD_TOKEN_CAPACITY - 1]);
        EXPECT_EQ(nullptr, tool.t->cmdv[CALCMD_TOKEN_CAPACITY]);
    }
    // ReadToEOL stops at the last whole token that fits its buffer.
    std::string joined = calcmd_ReadToEOL(tool.t, 0);
    size_t n = 0, at = 0;
    for (;; ++n) {
        size_t sp = joined.find(' ', at);
        EXPECT_EQ(token_name(static_cast<int>(n)), joined.substr(at, sp == std::string::npos ? sp : sp - at));
        if (sp == std::string::npos) break;
        at = sp + 1;
    }
    EXPECT_GE(joined.size() + 1 + std::to_string(n + 1).size() + 1, static_cast<size_t>(CALCMD_LINE_SIZE));
}

TEST(CalCmdCommands, Table) {
    struct Case {
        const char *line;
        int result;
        const char *out;  // substring of standard output; "" means empty output
        const char *err;
    };
    const Case cases[] = {
        {"# comment", 0, "", ""},
        {"; comment", 0, "", ""},
        {"// comment", 0, "", ""},
        {"   ", 0, "", ""},
        {"QUIT", 1, "\n\n", ""},
        {"q", 1, "\n\n", ""},
        {"known a b", 0, "", ""},
        {"unknown", 0, "Unrecognized command, type \"help\" for a list\n", ""},
        {"host", 0, "", "You must provide a host name\n"},
        {"port 0", 0, "", "You must provide a valid port number\n"},
        {"admin", 0, "", "You must provide an administrator name\n"},
        {"import", 0, "", "You must provide a script file name\n"},
        {"date %Y", 0, "Unrecognized command", ""},  // not in test-rig mode
        {"help", 0, "quit                         - quit the program\n", ""},
        {"import /no/such/file.txt", 0, "", "Error opening file: /no/such/file.txt  :  No such file or directory\n"},
    };
    Tool tool({"t"});
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        std::string out, err;
        EXPECT_EQ(c.result, tool.run(c.line, &out, &err));
        if (*c.out) {
            EXPECT_NE(std::string::npos, out.find(c.out)) << out;
        } else {
            EXPECT_EQ("", out);
        }
        EXPECT_EQ(c.err, err);
    }
    EXPECT_EQ((std::vector<std::string>{"known|a|b", "unknown", "date|%Y"}), seen_commands);
}

TEST(CalCmdCommands, SettingsThroughCommands) {
    Tool tool({"t"}, 1);  // test-rig mode
    tool.run("host \"my server\"");
    tool.run("Port 08");
    tool.run("administrator root");
    tool.run("password s3cret");
    tool.run("date %Y%m%d");
    tool.run("verbose YES");
    std::string out;
    tool.run("info", &out);
    EXPECT_EQ("host = my server\nport = 08\nadmin = root\npassword = s3cret\ndate format = %Y%m%d\nverbose = on\n",
              out);
    int given = 0;
    EXPECT_STREQ("08", calcmd_GetPort(tool.t, &given));
    EXPECT_EQ(1, given);
    tool.run("verbose");
    EXPECT_EQ(0, calcmd_Verbose(tool.t));
    tool.run("help", &out);
    EXPECT_NE(std::string::npos, out.find("ISO8601 format is:  %Y%m%dT%H%M%SZ\n"));

    // With the admin-port group, "port" sets the admin port.
    calcmd_EnableAdminPort(tool.t, nullptr);
    tool.run("port 9000");
    EXPECT_STREQ("9000", calcmd_GetAdminPort(tool.t, &given));
    EXPECT_EQ(1, given);
    EXPECT_STREQ("08", calcmd_GetPort(tool.t, nullptr));

    // backup / restore commands take a path only.
    tool.run("backup /b");
    tool.run("restore /r");
    EXPECT_EQ((std::vector<std::string>{"backup /b -", "restore /r -"}), seen_calls);
}

class CalCmdImport : public testing::Test {
  protected:
    orvtest::TempDir dir;
    std::string import(Tool &tool, const std::string &path, int expect, std::string *err = nullptr) {
        CaptureStdout();
        CaptureStderr();
        EXPECT_EQ(expect, calcmd_Import(tool.t, path.c_str()));
        std::string e = GetCapturedStderr();
        if (err) *err = e;
        return GetCapturedStdout();
    }
};

TEST_F(CalCmdImport, BannerEchoAndQuit) {
    orvtest::write_file(dir.file("a.txt"), "known 1\n\nverbose on\nquit\nknown 2\n");
    Tool tool({"t"});
    std::string out = import(tool, dir.file("a.txt"), 0);
    std::string dashes(75, '-');
    EXPECT_EQ(
        dashes + "\nImporting commands from: a.txt\n" + dashes + "\nin> known 1\nin> \nin> verbose on\nin> quit\n\n\n",
        out);
    EXPECT_EQ((std::vector<std::string>{"known|1"}), seen_commands);
    EXPECT_EQ(1, calcmd_Verbose(tool.t));
}

TEST_F(CalCmdImport, SelfImportStopsAtDepthBound) {
    orvtest::write_file(dir.file("self.txt"), "known x\nimport " + dir.file("self.txt") + "\n");
    Tool tool({"t"});
    std::string err;
    import(tool, dir.file("self.txt"), 0, &err);
    EXPECT_EQ(static_cast<size_t>(CALCMD_MAX_SCRIPT_DEPTH), seen_commands.size());
    EXPECT_EQ("Scripts nested too deeply: " + dir.file("self.txt") + "\n", err);
    // The depth is released: the same script runs again in full.
    seen_commands.clear();
    import(tool, dir.file("self.txt"), 0);
    EXPECT_EQ(static_cast<size_t>(CALCMD_MAX_SCRIPT_DEPTH), seen_commands.size());
}

TEST_F(CalCmdImport, BadInput) {
    Tool tool({"t"}, 1);  // test-rig mode
    EXPECT_EQ(1, calcmd_Import(tool.t, nullptr));
    std::string err;
    import(tool, dir.file("missing.txt"), 2, &err);
    EXPECT_EQ("Error opening file: " + dir.file("missing.txt") + "  :  No such file or directory\n", err);
    // ".js" goes to the script callback and is not opened.
    import(tool, dir.file("missing.js"), 0);
    EXPECT_EQ((std::vector<std::string>{"js " + dir.file("missing.js")}), seen_calls);

    // A line longer than the buffer is cut and its tail is not run.
    std::string longline = "known " + std::string(CALCMD_LINE_SIZE + 100, 'a') + " quit\nknown next\n";
    std::string exact = "known " + std::string(CALCMD_LINE_SIZE - 1 - 7, 'b') + "\nknown last\n";
    orvtest::write_file(dir.file("long.txt"), longline + exact + std::string("known \0bin\n", 11));
    import(tool, dir.file("long.txt"), 0, &err);
    EXPECT_EQ("Line too long; the rest of it is ignored\n", err);
    ASSERT_EQ(5u, seen_commands.size());
    EXPECT_EQ(static_cast<size_t>(CALCMD_LINE_SIZE - 1), seen_commands[0].size());
    EXPECT_EQ("known|next", seen_commands[1]);
    EXPECT_EQ(static_cast<size_t>(CALCMD_LINE_SIZE - 2), seen_commands[2].size());
    EXPECT_EQ("known|last", seen_commands[3]);
    EXPECT_EQ("known", seen_commands[4]);
}

TEST(CalCmdPrompt, ReadsUntilQuit) {
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("in.txt"), "known one\ninfo\nquit\nknown never\n");
    int saved = dup(0);
    int fd = open(dir.file("in.txt").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    dup2(fd, 0);
    close(fd);
    {
        Tool tool({"t", "-K"});
        CaptureStdout();
        EXPECT_EQ(0, calcmd_Ops(tool.t));
        EXPECT_EQ(0, calcmd_Input(tool.t));
        std::string out = GetCapturedStdout();
        EXPECT_EQ("tool> tool> host = localhost\nport = 80\nadmin = \npassword = \nverbose = off\ntool> \n\n", out);
        EXPECT_EQ((std::vector<std::string>{"known|one"}), seen_commands);
    }
    dup2(saved, 0);
    close(saved);
}

TEST(CalCmdOptions, OutputDirectoryGivesProfilingFile) {
    orvtest::TempDir dir;
    {
        Tool tool({"t", "-o", dir.path()});
        EXPECT_EQ(0, calcmd_Ops(tool.t));
        EXPECT_NE(PR_GetSpecialFD(PR_StandardOutput), calcmd_GetOutputFileDescriptor());
        std::string line = "info";
        CaptureStdout();
        calcmd_Cmds(tool.t, line.data());
        EXPECT_EQ("", GetCapturedStdout());
    }
    EXPECT_EQ("host = localhost\nport = 80\nadmin = \npassword = \nverbose = off\n",
              orvtest::read_file(dir.file("calprf0.prf")));
    EXPECT_EQ(PR_GetSpecialFD(PR_StandardOutput), calcmd_GetOutputFileDescriptor());
}

TEST(CalCmdExitDeathTest, SysErrorExitPrintsAndEndsWithOne) {
    Tool tool({"t"});
    EXPECT_EXIT(calcmd_SysErrorExit(tool.t, ENOENT), testing::ExitedWithCode(1), "^tool: No such file or directory\n$");
}

TEST(CalCmdSettings, Parsers) {
    struct OnOff {
        const char *text;
        int value;
    };
    for (const OnOff &c : {OnOff{"on", 1}, {"TRUE", 1}, {"Yes", 1}, {"off", 0}, {"1", 0}, {"", 0}, {nullptr, 0}})
        EXPECT_EQ(c.value, calcmd_OnOff(c.text)) << str(c.text);

    struct U32 {
        const char *text;
        int result;
        unsigned value;
    };
    for (const U32 &c : {U32{"0", 0, 0},
                         {"4294967295", 0, 4294967295u},
                         {" +42 ", 0, 42},
                         {"4294967296", 0, 0},
                         {"-1", 0, 4294967295u},
                         {"7x", 0, 7},
                         {"99999999999999999999999", 0, 4294967295u},
                         {"", 1, 9},
                         {" -x7", 1, 9}}) {
        unsigned v = 9;
        CaptureStderr();
        EXPECT_EQ(c.result, calcmd_SetUINT32(c.text, &v)) << c.text;
        std::string err = GetCapturedStderr();
        EXPECT_EQ(c.value, v) << c.text;
        EXPECT_EQ(c.result ? "bad unsigned 32 bit string: " + std::string(c.text) + "\n" : "", err);
    }
    EXPECT_EQ(1, calcmd_SetUINT32(nullptr, nullptr));
}

TEST(CalCmdSettings, ParseDate) {
    EXPECT_EQ(1107944100, calcmd_ParseDate("20050209T101500Z"));
    {
        orvtest::ScopedEnv tz("TZ", "UTC");
        EXPECT_EQ(1107944100, calcmd_ParseDate("20050209T101500"));
    }
    {
        orvtest::ScopedEnv tz("TZ", "EST5");
        EXPECT_EQ(1107944100 + 5 * 3600, calcmd_ParseDate("20050209T101500"));
    }
    EXPECT_EQ(static_cast<time_t>(-1), calcmd_ParseDate("2005"));
    EXPECT_EQ(static_cast<time_t>(-1), calcmd_ParseDate(nullptr));
}

TEST(CalCmdSettings, OutputDirectoryAcceptsDash) {
    Tool tool({"t"});
    std::vector<std::string> a = {"-o", "-dir"};
    std::vector<char *> argv = {a[0].data(), a[1].data(), nullptr};
    int index = 0;
    EXPECT_EQ(0, calcmd_SetOutputDirectory(tool.t, argv.data(), 2, &index));  // '-' accepted here
    EXPECT_EQ(1, index);
    EXPECT_STREQ("-dir", calcmd_GetOutputDirectory(tool.t));
    CaptureStderr();
    EXPECT_EQ(1, calcmd_SetOutputDirectory(tool.t, argv.data(), 2, &index));
    EXPECT_EQ("You must provide a output directory\n", GetCapturedStderr());
    EXPECT_EQ(1, index);
}

}  // namespace
