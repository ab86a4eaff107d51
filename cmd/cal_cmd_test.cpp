#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "orvtest.hpp"
#include "orvutil/cal_cmd.h"

namespace {

std::vector<std::string> seen_commands;
std::vector<std::string> seen_calls;

int command_cb(char **tokens) {
    std::string joined;
    for (char **t = tokens; *t != nullptr; ++t) joined += std::string(joined.empty() ? "" : "|") + *t;
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
    seen_calls.push_back(std::string("backup ") + (path != nullptr ? path : "-") + " " + (id != nullptr ? id : "-"));
}
void restore_cb(const char *path, const char *id) {
    seen_calls.push_back(std::string("restore ") + (path != nullptr ? path : "-") + " " + (id != nullptr ? id : "-"));
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
        EXPECT_EQ(calcmd_Init(&t, "tool", "file...", static_cast<int>(args.size()), argv.data(), interactive,
                              optionsOnly, option_cb, nullptr, command_cb, nullptr, nullptr, script_cb),
                  0);
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
        EXPECT_EQ(calcmd_Exit(&t), 0);
        EXPECT_EQ(t, nullptr);
    }
    // Runs one command line; returns what went to standard output and error.
    int run(const std::string &line, std::string *out = nullptr, std::string *err = nullptr) {
        std::string copy = line;
        auto r = orvtest::capture_output([&] { return calcmd_Cmds(t, copy.data()); });
        if (out != nullptr) *out = r.out;
        if (err != nullptr) *err = r.err;
        return r.value;
    }
    std::vector<std::string> tokens() const {
        std::vector<std::string> v;
        for (int i = 0; i < t->cmdvCount; ++i) v.emplace_back(t->cmdv[i]);
        return v;
    }
};

std::string str(const char *s) { return s != nullptr ? s : "(null)"; }

// calcmd_Ops with its output captured.
auto ops(calcmd_tool *t) {
    return orvtest::capture_output([t] { return calcmd_Ops(t); });
}

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
        const auto r = ops(tool.t);
        EXPECT_EQ(r.value, c.result);
        const std::string &err = r.err;
        if (*c.err != '\0') {
            EXPECT_NE(err.find(c.err), std::string::npos) << err;
        } else {
            EXPECT_EQ(err, "");
        }
        EXPECT_EQ(str(calcmd_GetHost(tool.t)), str(c.host));
        EXPECT_EQ(str(calcmd_GetPort(tool.t, nullptr)), str(c.port));
        EXPECT_EQ(str(calcmd_GetAdmin(tool.t)), str(c.admin));
        EXPECT_EQ(str(tool.t->scriptPath), str(c.script));
        EXPECT_EQ(calcmd_Verbose(tool.t), c.verbose);
        EXPECT_EQ(tool.t->interactive, c.interactive);
    }
}

TEST(CalCmdOptions, HelpAndGroupsOff) {
    {
        Tool tool({"t", "-?"});
        const auto r = ops(tool.t);
        EXPECT_EQ(r.value, -1);
        EXPECT_EQ(r.out,
                  "tool [options] file...\n\nwhere options are:\n\n"
                  "-#                           - build date\n"
                  "-v                           - verbose mode\n"
                  "-I script                    - import commands from script\n"
                  "-K                           - interactive mode\n");
    }
    {
        Tool tool({"t"}, 0, 1);  // options-only: no usage header
        const auto r = ops(tool.t);
        EXPECT_EQ(r.value, -1);
        EXPECT_EQ(r.out.find("-#"), 0u);
    }
    {
        // Without the host group "-h" is the tool's business (and unknown).
        Tool tool({"t", "-h", "x"}, 0, 0, false);
        const auto r = ops(tool.t);
        EXPECT_EQ(r.value, -1);
        EXPECT_EQ(r.err.find("unrecognized option: -h\n"), 0u);
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
        const auto r = ops(tool.t);
        EXPECT_EQ(r.value, c.result);
        EXPECT_EQ(r.err, c.err);
        if (c.result == 0) orvtest::capture_output([&] { return calcmd_Input(tool.t); });
    }
    // Restore runs before backup.
    EXPECT_EQ(seen_calls, (std::vector<std::string>{"restore /r 8", "backup /b 9"}));
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
        const auto r = orvtest::capture_output([&] { return calcmd_Parse(tool.t, line.data(), &rest); });
        EXPECT_EQ(r.value, c.result);
        EXPECT_EQ(r.err, c.warns ? "You forgot to close the quote...  Assuming close quote at eol.\n" : "");
        EXPECT_EQ(tool.tokens(), c.tokens);
        if (c.result == 2) continue;
        if (c.rest != nullptr) {
            EXPECT_EQ(str(rest), std::string(c.rest));
        } else if (c.tokens.size() < 2) {
            EXPECT_EQ(rest, nullptr);
        }
    }
    char *rest = nullptr;
    EXPECT_EQ(calcmd_Parse(tool.t, nullptr, &rest), 1);
    std::string l = "x";
    EXPECT_EQ(calcmd_Parse(tool.t, l.data(), nullptr), 1);
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
        const auto r = orvtest::capture_output([&] { return calcmd_Parse(tool.t, line.data(), &rest); });
        EXPECT_EQ(r.value, 0);
        EXPECT_EQ(r.err, extra != 0 ? "Too many tokens; the rest of the line is ignored\n" : "");
        ASSERT_EQ(calcmd_CmdvCount(tool.t), CALCMD_TOKEN_CAPACITY);
        EXPECT_STREQ(tool.t->cmdv[CALCMD_TOKEN_CAPACITY - 1], "t10239");
        EXPECT_EQ(tool.t->cmdv[CALCMD_TOKEN_CAPACITY], nullptr);
    }
    // ReadToEOL stops at the last whole token that fits its buffer.
    std::string joined = calcmd_ReadToEOL(tool.t, 0);
    size_t n = 0, at = 0;
    for (;; ++n) {
        size_t sp = joined.find(' ', at);
        EXPECT_EQ(joined.substr(at, sp == std::string::npos ? sp : sp - at), token_name(static_cast<int>(n)));
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
        {"admin", 0, "", "You must provide an administrator name\n"},
        {"date %Y", 0, "Unrecognized command", ""},  // not in test-rig mode
        {"help", 0, "quit                         - quit the program\n", ""},
        {"import /no/such/file.txt", 0, "", "Error opening file: /no/such/file.txt  :  No such file or directory\n"},
    };
    Tool tool({"t"});
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        std::string out, err;
        EXPECT_EQ(tool.run(c.line, &out, &err), c.result);
        if (*c.out != '\0') {
            EXPECT_NE(out.find(c.out), std::string::npos) << out;
        } else {
            EXPECT_EQ(out, "");
        }
        EXPECT_EQ(err, c.err);
    }
    EXPECT_EQ(seen_commands, (std::vector<std::string>{"known|a|b", "date|%Y"}));
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
    EXPECT_EQ(out,
              "host = my server\nport = 08\nadmin = root\npassword = s3cret\ndate format = %Y%m%d\nverbose = on\n");
    int given = 0;
    EXPECT_STREQ(calcmd_GetPort(tool.t, &given), "08");
    EXPECT_EQ(given, 1);
    tool.run("verbose");
    EXPECT_EQ(calcmd_Verbose(tool.t), 0);
    tool.run("help", &out);
    EXPECT_NE(out.find("ISO8601 format is:  %Y%m%dT%H%M%SZ\n"), std::string::npos);

    // With the admin-port group, "port" sets the admin port.
    calcmd_EnableAdminPort(tool.t, nullptr);
    tool.run("port 9000");
    EXPECT_STREQ(calcmd_GetAdminPort(tool.t, &given), "9000");
    EXPECT_EQ(given, 1);
    EXPECT_STREQ(calcmd_GetPort(tool.t, nullptr), "08");

    // backup / restore commands take a path only.
    tool.run("backup /b");
    tool.run("restore /r");
    EXPECT_EQ(seen_calls, (std::vector<std::string>{"backup /b -", "restore /r -"}));
}

class CalCmdImport : public testing::Test {
  protected:
    orvtest::TempDir dir;
    std::string import(Tool &tool, const std::string &path, int expect, std::string *err = nullptr) {
        const auto r = orvtest::capture_output([&] { return calcmd_Import(tool.t, path.c_str()); });
        EXPECT_EQ(r.value, expect);
        if (err != nullptr) *err = r.err;
        return r.out;
    }
};

TEST_F(CalCmdImport, SelfImportStopsAtDepthBound) {
    orvtest::write_file(dir.file("self.txt"), "known x\nimport " + dir.file("self.txt") + "\n");
    Tool tool({"t"});
    std::string err;
    import(tool, dir.file("self.txt"), 0, &err);
    EXPECT_EQ(seen_commands.size(), static_cast<size_t>(CALCMD_MAX_SCRIPT_DEPTH));
    EXPECT_EQ(err, "Scripts nested too deeply: " + dir.file("self.txt") + "\n");
    // The depth is released: the same script runs again in full.
    seen_commands.clear();
    import(tool, dir.file("self.txt"), 0);
    EXPECT_EQ(seen_commands.size(), static_cast<size_t>(CALCMD_MAX_SCRIPT_DEPTH));
}

TEST_F(CalCmdImport, BadInput) {
    Tool tool({"t"}, 1);  // test-rig mode
    EXPECT_EQ(calcmd_Import(tool.t, nullptr), 1);
    std::string err;
    import(tool, dir.file("missing.txt"), 2, &err);
    EXPECT_EQ(err, "Error opening file: " + dir.file("missing.txt") + "  :  No such file or directory\n");
    // ".js" goes to the script callback and is not opened.
    import(tool, dir.file("missing.js"), 0);
    EXPECT_EQ(seen_calls, (std::vector<std::string>{"js " + dir.file("missing.js")}));

    // A line longer than the buffer is cut and its tail is not run.
    std::string longline = "known " + std::string(CALCMD_LINE_SIZE + 100, 'a') + " quit\nknown next\n";
    std::string exact = "known " + std::string(CALCMD_LINE_SIZE - 1 - 7, 'b') + "\nknown last\n";
    orvtest::write_file(dir.file("long.txt"), longline + exact + std::string("known \0bin\n", 11));
    import(tool, dir.file("long.txt"), 0, &err);
    EXPECT_EQ(err, "Line too long; the rest of it is ignored\n");
    ASSERT_EQ(seen_commands.size(), 5u);
    EXPECT_EQ(seen_commands[0].size(), static_cast<size_t>(CALCMD_LINE_SIZE - 1));
    EXPECT_EQ(seen_commands[1], "known|next");
    EXPECT_EQ(seen_commands[2].size(), static_cast<size_t>(CALCMD_LINE_SIZE - 2));
    EXPECT_EQ(seen_commands[3], "known|last");
    EXPECT_EQ(seen_commands[4], "known");
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
        const auto r = orvtest::capture_output([&] {
            const int ops = calcmd_Ops(tool.t);
            return std::pair(ops, calcmd_Input(tool.t));
        });
        EXPECT_EQ(r.value.first, 0);
        EXPECT_EQ(r.value.second, 0);
        const std::string &out = r.out;
        EXPECT_EQ(out, "tool> tool> host = localhost\nport = 80\nadmin = \npassword = \nverbose = off\ntool> \n\n");
        EXPECT_EQ(seen_commands, (std::vector<std::string>{"known|one"}));
    }
    dup2(saved, 0);
    close(saved);
}

TEST(CalCmdOptions, OutputDirectoryGivesProfilingFile) {
    orvtest::TempDir dir;
    {
        Tool tool({"t", "-o", dir.path()});
        EXPECT_EQ(calcmd_Ops(tool.t), 0);
        EXPECT_NE(calcmd_GetOutputFileDescriptor(), PR_GetSpecialFD(PR_StandardOutput));
        std::string line = "info";
        EXPECT_EQ(orvtest::capture_output([&] { return calcmd_Cmds(tool.t, line.data()); }).out, "");
    }
    EXPECT_EQ(orvtest::read_file(dir.file("calprf0.prf")),
              "host = localhost\nport = 80\nadmin = \npassword = \nverbose = off\n");
    EXPECT_EQ(calcmd_GetOutputFileDescriptor(), PR_GetSpecialFD(PR_StandardOutput));
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
        EXPECT_EQ(calcmd_OnOff(c.text), c.value) << str(c.text);

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
        const auto r = orvtest::capture_output([&] { return calcmd_SetUINT32(c.text, &v); });
        EXPECT_EQ(r.value, c.result) << c.text;
        EXPECT_EQ(v, c.value) << c.text;
        EXPECT_EQ(r.err, c.result != 0 ? "bad unsigned 32 bit string: " + std::string(c.text) + "\n" : "");
    }
    EXPECT_EQ(calcmd_SetUINT32(nullptr, nullptr), 1);
}

TEST(CalCmdSettings, ParseDate) {
    EXPECT_EQ(calcmd_ParseDate("20050209T101500Z"), 1107944100);
    {
        orvtest::ScopedEnv tz("TZ", "UTC");
        EXPECT_EQ(calcmd_ParseDate("20050209T101500"), 1107944100);
    }
    {
        orvtest::ScopedEnv tz("TZ", "EST5");
        EXPECT_EQ(calcmd_ParseDate("20050209T101500"), 1107944100 + 5 * 3600);
    }
    EXPECT_EQ(calcmd_ParseDate("2005"), static_cast<time_t>(-1));
    EXPECT_EQ(calcmd_ParseDate(nullptr), static_cast<time_t>(-1));
}

TEST(CalCmdSettings, OutputDirectoryAcceptsDash) {
    Tool tool({"t"});
    std::vector<std::string> a = {"-o", "-dir"};
    std::vector<char *> argv = {a[0].data(), a[1].data(), nullptr};
    int index = 0;
    EXPECT_EQ(calcmd_SetOutputDirectory(tool.t, argv.data(), 2, &index), 0);  // '-' accepted here
    EXPECT_EQ(index, 1);
    EXPECT_STREQ(calcmd_GetOutputDirectory(tool.t), "-dir");
    const auto r = orvtest::capture_output([&] { return calcmd_SetOutputDirectory(tool.t, argv.data(), 2, &index); });
    EXPECT_EQ(r.value, 1);
    EXPECT_EQ(r.err, "You must provide a output directory\n");
    EXPECT_EQ(index, 1);
}

}  // namespace
