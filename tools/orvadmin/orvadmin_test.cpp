// orvadmin run as a process: options and exit status, scripts, piped input
// and one session on a pseudo-terminal. Every run is bounded by a time-out.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <vector>

#include "orvnginx.hpp"
#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/platform/counter.h"

namespace {

struct Result {
    int status = -1;  // exit status, or -1 when killed at the time-out
    std::string out, err;
};

// The exit status of pid, or -1 when it had to be killed at the deadline.
int reap(pid_t pid, std::chrono::steady_clock::time_point deadline) {
    int st = 0;
    while (waitpid(pid, &st, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &st, 0);
            break;
        }
        usleep(10000);
    }
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

// Runs args with input on standard input and its outputs in files; killed
// after 20 seconds.
Result run(std::vector<std::string> args, const std::string &input = "", const std::string &cwd = "") {
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("in"), input);
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int fds[] = {open(dir.file("in").c_str(), O_RDONLY), open(dir.file("out").c_str(), O_WRONLY | O_CREAT, 0600),
                     open(dir.file("err").c_str(), O_WRONLY | O_CREAT, 0600)};
        for (int i = 0; i < 3; ++i) dup2(fds[i], i);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(127);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return {reap(pid, std::chrono::steady_clock::now() + std::chrono::seconds(20)), orvtest::read_file(dir.file("out")),
            orvtest::read_file(dir.file("err"))};
}

Result admin(std::vector<std::string> args, const std::string &input = "") {
    args.insert(args.begin(), ORVADMIN_PATH);
    return run(args, input);
}

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

const std::string dashes(75, '-');

TEST(Orvadmin, OptionsAndExitStatus) {
    struct Case {
        std::vector<std::string> args;
        int status;
        const char *out;  // substrings expected ("" for none)
        const char *err;
    };
    const Case cases[] = {
        {{"-?"}, 0, "orvadmin [options] \n\nwhere options are:\n\n-#", ""},
        {{"--help"}, 0, "\nand commands are:\n\nhelp or ?", ""},
        {{"-h"},
         0,
         "encode url|html|cookie|full|alpha|js|xml|ical text\n                             - the text encoded",
         ""},
        {{"-#"}, 0, "", "\nBuild date is: Feb  9 2005\n"},
        {{"-c"}, 64, "", "You must provide a configuration file name\n"},
        {{"-zz"}, 64, "-c file                      - configuration file", "unrecognized option: -zz\n\n"},
        {{"-I", "/no/such/script.orv"}, 2, "", "cannot read /no/such/script.orv: No such file or directory\n"},
        {{"-I", "/"}, 2, "", "cannot read /: Is a directory\n"},
        {{"-c", "/no/such.conf"}, 2, "", "cannot read /no/such.conf: No such file or directory\n"},
        {{"-p", "08", "-h", "srv", "-9", "x", "-v"}, 0, "host = srv\nport = 08\n", ""},
    };
    for (const auto &c : cases) {
        std::string label;
        for (auto &a : c.args) label += a + " ";
        SCOPED_TRACE(label);
        Result r = admin(c.args, "info\n");
        EXPECT_EQ(c.status, r.status);
        EXPECT_TRUE(has(r.out, c.out)) << r.out;
        EXPECT_TRUE(has(r.err, c.err)) << r.err;
    }
}

TEST(Orvadmin, PipedCommands) {
    Result r = admin({}, "version\nmd5 abc\nguid\n# comment\nhost \"my server\"\ninfo\n");
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(has(r.out, "version = Orvane 2005Q1"));
    EXPECT_TRUE(has(r.out, "md5 = 900150983cd24fb0d6963f7d28e17f72\n"));
    EXPECT_TRUE(has(r.out, "guid = 00000000000000000000000000000000"));
    EXPECT_TRUE(has(r.out, "host = my server\n"));
    EXPECT_EQ("", r.err);

    // A failing or unknown command sets the status; "quit" ends the input.
    r = admin({}, "md5\nbogus\nquit\nversion\n");
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(has(r.err, "md5: usage: md5 text\n"));
    EXPECT_TRUE(has(r.out, "Unrecognized command, type \"help\" for a list\n"));
    EXPECT_FALSE(has(r.out, "version ="));

    // Bad input: binary bytes, an overlong line, many tokens, open quotes.
    std::string many;
    for (int i = 0; i < 10241; ++i) many += "x ";
    std::string input = std::string("md5 \x01\xff\x7f\n") + "md5 " + std::string(20000, 'a') + "\n" + "md5 " +
                        many.substr(0, 9000) + "\n" + "md5 \"open\n" + "version\n";
    r = admin({}, input);
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(has(r.err, "Line too long; the rest of it is ignored\n"));
    EXPECT_TRUE(has(r.err, "You forgot to close the quote...  Assuming close quote at eol.\n"));
    EXPECT_TRUE(has(r.out, "version = "));
}

TEST(Orvadmin, Scripts) {
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("inner.orv"), "md5 abc\nquit\nversion\n");
    orvtest::write_file(dir.file("outer.orv"), "import " + dir.file("inner.orv") + "\nhost after\ninfo");
    orvtest::write_file(dir.file("self.orv"), "import " + dir.file("self.orv") + "\n");
    orvtest::write_file(dir.file("bad.orv"), "md5 abc\nsetting no.such.key\nversion\n");

    Result r = admin({"-I", dir.file("outer.orv")});
    EXPECT_EQ(0, r.status) << r.err;
    std::string expected = dashes + "\nImporting commands from: outer.orv\n" + dashes + "\nin> import " +
                           dir.file("inner.orv") + "\n" + dashes + "\nImporting commands from: inner.orv\n" + dashes +
                           "\nin> md5 abc\nmd5 = 900150983cd24fb0d6963f7d28e17f72\nin> quit\n\n\n" +
                           "in> host after\nin> info\nhost = after\n";
    EXPECT_EQ(0u, r.out.find(expected)) << r.out;
    EXPECT_FALSE(has(r.out, "version ="));

    r = admin({"-I", dir.file("self.orv")});
    EXPECT_EQ(1, r.status);  // the innermost import failed
    EXPECT_EQ("Scripts nested too deeply: " + dir.file("self.orv") + "\n", r.err);

    orvtest::write_file(dir.file("empty.conf"), "");
    r = admin({"-c", dir.file("empty.conf"), "-I", dir.file("bad.orv")});
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(has(r.err, "setting: no.such.key is not set in " + dir.file("empty.conf")));
    EXPECT_TRUE(has(r.out, "version = "));  // a failure does not stop the script

    // The configuration file gives the defaults and answers "setting".
    orvtest::write_file(dir.file("orv.conf"), "orvadmin.host = \"cal.example\"\nlocal.sitelanguage = \"fr\"\n");
    r = admin({"-c", dir.file("orv.conf")}, "info\nsetting local.sitelanguage\n");
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(has(r.out, "host = cal.example\n")) << r.out;
    EXPECT_TRUE(has(r.out, "local.sitelanguage = fr\n")) << r.out;

    // With -K the script is followed by the commands of standard input.
    r = admin({"-K", "-I", dir.file("inner.orv")}, "version\n");
    EXPECT_EQ(0, r.status);
    EXPECT_TRUE(has(r.out, "md5 = 9001"));
    EXPECT_TRUE(has(r.out, "version = "));
}

// One command per run: its output and exit status, failures on stderr.
TEST(Orvadmin, CommandsOnTheFamilies) {
    orvtest::ScopedEnv tz("TZ", "EST5");
    struct Case {
        const char *line;
        int status;
        const char *out;
    };
    const Case cases[] = {
        {"when 20050209T101500", 0,
         "kind = date-time\nutc = 1107944100 20050209T101500Z\n"
         "local = 1107962100 20050209T101500\n"},
        {"when 20050209", 0, "kind = date\nutc = 1107907200 20050209\nlocal = 1107925200 20050209\n"},
        {"when 20050230", 1, ""},
        {"dur +P0Y2M", 0, "duration = P2MT\n"},
        {"dur P1W2D", 1, ""},
        {"add P1M 20040131T100000", 0, "result = 20040229T100000\n"},
        {"add P1M 2004", 1, ""},
        {"period 20050209T101500Z/PT1H", 0, "start = 1107944100 20050209T101500Z\nduration = PT1H\nvalid = yes\n"},
        {"period 20050210T101500Z/20050209T101500Z", 1,
         "start = 1108030500 20050210T101500Z\nend = 1107944100 20050209T101500Z\nvalid = no\n"},
        {"period x", 1, ""},
        {"calid jdoe@example.com:home", 0,
         "valid = yes\nuid = jdoe@example.com\ndomain = example.com:\nsuffix = home\n"},
        {"calid \"j doe\"", 1, "valid = no\nuid = j doe\ndomain = \nsuffix = \n"},
        {"encode url a b&c/d", 0, "encoded = a+b%26c%2Fd\n"},
        {"encode html \"<b>&\"", 0, "encoded = &lt;b&gt;&amp;\n"},
        {"encode full a b/c", 0, "encoded = a+b^2Fc\n"},
        {"encode js \"it's </script>\"", 0, "encoded = it\\'s </'+'script>\n"},
        {"encode xml '<a>&'", 0, "encoded = &#60;a&#62;&#38;\n"},
        {"encode ical \"a,b;c\"", 0, "encoded = a\\,b\\;c\n"},
        {"encode rot13 x", 1, ""},
        {"decode url a%20b+c", 0, "decoded = a b c\n"},
        {"decode full a^2Fb", 0, "decoded = a/b\n"},
        {"decode html x", 1, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Result r = admin({}, std::string(c.line) + "\n");
        EXPECT_EQ(c.status, r.status);
        EXPECT_EQ(c.out, r.out);
        EXPECT_EQ(c.status != 0, !r.err.empty()) << r.err;
    }
}

// Failed commands, the frame's included, set the status; input the library
// ignores is named on standard error without failing.
TEST(Orvadmin, FailuresAndIgnoredInputOnStandardError) {
    const struct {
        const char *line;
        int status;
        const char *err;
    } cases[] = {
        {"port 0", 1, "You must provide a valid port number\n"},
        {"host", 1, "You must provide a host name\n"},
        {"import", 1, "You must provide a script file name\n"},
        {"import /", 1, "Error opening file: /  :  Is a directory\n"},
        {"version now", 1, "version: usage: version\n"},
        {"add P1D", 1, "add: usage: add duration datetime\n"},
        {"add P1D 20050209T101500Z", 0,
         "add: the 'Z' is ignored: the duration is added to the time as a floating local time\n"},
        {"when 20050209T101500+0100", 0, "when: the text after the 15th character is ignored: +0100\n"},
        {"url http://h:99999999999/x", 0, "url: the port 99999999999 does not fit and is ignored\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Result r = admin({}, std::string(c.line) + "\n");
        EXPECT_EQ(c.status, r.status);
        EXPECT_EQ(c.err, r.err);
    }
}

TEST(Orvadmin, UrlAndQueryCommands) {
    Result r = admin({}, "url \"http://me:pw@cal.example:8080/home/x?a=1&b=two\"\nquery a=1&b=2&a=3\n");
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(
        "protocol = http\nuser = me\npassword = pw\nhost = cal.example\nport = 8080\npath = home/x\n"
        "fragment = \nparam a = 1\nparam b = two\nurl = http://me:pw@cal.example:8080/home/x?a=1&b=two\n"
        "count = 2\nparam a = 3\nparam b = 2\nquery = a=3&b=2\n",
        r.out);
}

// One command line each, run in order: its status and its whole outputs.
struct Step {
    std::string line;
    int status;
    std::string out, err;
};
template <size_t N>
void run_steps(const Step (&steps)[N]) {
    for (const auto &s : steps) {
        SCOPED_TRACE(s.line);
        Result r = admin({}, s.line + "\n");
        EXPECT_EQ(s.status, r.status);
        EXPECT_EQ(s.out, r.out);
        EXPECT_EQ(s.err, r.err);
    }
}

TEST(Orvadmin, ConfCommands) {
    orvtest::TempDir dir;
    std::string f = dir.file("t.conf");
    orvtest::write_file(f, "# keep me\nb = 2\n ,\"2, b\"\n\na = 1\n");
    const std::string usage = "conf: usage: conf list file | get file name | set file name value | del file name\n";
    const Step steps[] = {
        {"conf list " + f, 0, "b = 2\n ,2, b\na = 1\n", ""},
        {"conf get " + f + " B", 0, "B = 2\n ,2, b\n", ""},
        {"conf set " + f + " c \"x y\"", 0, "c = x y\n", ""},
        {"conf set " + f + " a 3", 0, "a = 3\n", ""},
        {"conf del " + f + " b", 0, "deleted b\n", ""},
        {"conf del " + f + " b", 1, "", "conf: b is not set in " + f + "\n"},
        {"conf set " + f + " #x 1", 1, "", "conf: #x cannot be written as a name\n"},
        {"conf list " + dir.file("none"), 1, "",
         "conf: cannot read " + dir.file("none") + ": No such file or directory\n"},
        {"conf move " + f, 1, "", usage},
        {"conf get " + f, 1, "", usage},
        {"conf get " + f + " a b", 1, "", usage},
    };
    run_steps(steps);
    // Edited in place: the comment, the blank line and the order stay.
    EXPECT_EQ("# keep me\n\na = 3\nc = \"x y\"\n", orvtest::read_file(f));
}

// Counters written by this process, read by orvadmin: printed, watched
// across a re-created file, and exported for a real exposition parser.
TEST(Orvadmin, CountersPrintWatchAndExport) {
    orvtest::TempDir dir;
    const std::string conf = dir.file("orv.conf"), prom = dir.file("orv.prom");
    orvtest::write_file(conf, "local.instancedir = " + dir.path() + "\n");
    orvtest::write_file(dir.file("counter.conf"),
                        "web.requests = count Requests \"served\" C:\\x\nweb.open-conns = gauge\n");
    config_cache *cc = countermsg_open_config(dir.file("counter.conf").c_str());
    countermsg_registry *reg = countermsg_get_registry(dir.file("counter").c_str(), 1);
    counterobject *web = nullptr;
    counterinstance *global = nullptr, *worker = nullptr;
    ASSERT_EQ(0, countermsg_create_instance("web", 0, 0, "global", 4, &web, &global, cc, reg));
    ASSERT_EQ(0, counterinstance_open(web, "worker \"1\"", 0, &worker));
    counterinstance_add(global, 1, 5);
    counterinstance_add(worker, 1, 2);
    counterinstance_add(global, 2, -2);

    // A damaged file is named; the others are still shown.
    orvtest::write_file(dir.file("counter/bad.cnt"), "junk");
    Result r = admin({"-c", conf}, "counters\ncounters nothere\n");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(
        "web[global].requests = 5\nweb[global].open-conns = -2\n"
        "web[worker \"1\"].requests = 2\nweb[worker \"1\"].open-conns = 0\n",
        r.out);
    EXPECT_EQ("counters: bad: not a counter file of this layout version\ncounters: nothere: not found\n", r.err);
    std::remove(dir.file("counter/bad.cnt").c_str());

    r = admin({"-c", conf}, "counters --prometheus " + prom + "\n");
    EXPECT_EQ(0, r.status) << r.err;
    if (access("/usr/bin/python3", X_OK) == 0 &&
        run({"/usr/bin/python3", "-c", "import prometheus_client"}).status == 0) {
        r = run({"/usr/bin/python3", "-c",
                 "import sys\nfrom prometheus_client.parser import text_string_to_metric_families as p\n"
                 "for f in p(open(sys.argv[1]).read()):\n  print(f.name, f.type, f.documentation, sep='|')\n"
                 "  for s in f.samples: print(' ', s.name, s.labels, s.value, sep='|')\n",
                 prom});
        EXPECT_EQ(0, r.status) << r.err;
        EXPECT_EQ(
            "orv_web_requests|counter|Requests \"served\" C:\\x\n"
            " |orv_web_requests_total|{'instance': 'global'}|5.0\n"
            " |orv_web_requests_total|{'instance': 'worker \"1\"'}|2.0\n"
            "orv_web_open_conns|gauge|\n"
            " |orv_web_open_conns|{'instance': 'global'}|-2.0\n"
            " |orv_web_open_conns|{'instance': 'worker \"1\"'}|0.0\n",
            r.out);
    } else {
        ADD_FAILURE() << "python3-prometheus-client is not installed (scripts/install-deps)";
    }

    r = admin({"-c", conf}, "counters -w 1 -n 2 web\n");
    EXPECT_TRUE(has(r.out, "--- refresh 2, every 1 s\nweb[global].requests = 5 (0.0/s)\n")) << r.out;
    EXPECT_FALSE(has(r.out, "--- refresh 3"));

    // Watched: a re-created file (a restarted server) is followed, and
    // rates are taken within one generation. Each step waits for what a
    // refresh shows, so a slow machine only makes it slower.
    orvtest::write_file(dir.file("watch.orv"), "counters -w 1 -n 600 web\n");
    orvtest::Child watch({ORVADMIN_PATH, "-c", conf, "-I", dir.file("watch.orv")}, {{}, dir.file("watch.out"), ""});
    auto shows = [&](std::initializer_list<std::string> texts) {
        return orvtest::wait_until(
            [&] {
                std::string seen = orvtest::read_file(dir.file("watch.out"));
                return std::any_of(texts.begin(), texts.end(), [&](const std::string &t) { return has(seen, t); });
            },
            std::chrono::seconds(60));
    };
    ASSERT_TRUE(shows({"web[worker \"1\"].open-conns = 0\n"}));
    counterinstance_close(global);
    counterinstance_close(worker);
    counterobject_close(web);
    ASSERT_EQ(0, countermsg_create_instance("web", COUNTER_CREATE_FRESH, 0, "global", 4, &web, &global, cc, reg));
    counterinstance_add(global, 1, 7);
    ASSERT_TRUE(shows({"web[global].requests = 0\n", "web[global].requests = 7\n"}));
    counterinstance_add(global, 1, 3);
    EXPECT_TRUE(shows({"web[global].requests = 10 ("})) << orvtest::read_file(dir.file("watch.out"));
    counterinstance_close(global);
    counterobject_close(web);
    countermsg_free_registry(reg);
    config_freecache(cc);
}

TEST(Orvadmin, HttpCommands) {
    orvtest::Nginx web;
    ASSERT_TRUE(web.started());
    orvtest::write_file(web.root() + "/small.txt", "hello\n");
    // A peer that accepts (in the kernel's backlog) and never answers.
    int mute = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof a;
    bind(mute, reinterpret_cast<sockaddr *>(&a), len);
    listen(mute, 4);
    getsockname(mute, reinterpret_cast<sockaddr *>(&a), &len);
    const std::string port = std::to_string(web.port()), silent = std::to_string(ntohs(a.sin_port));
    const std::string url = "http://127.0.0.1:" + port;
    const struct {
        std::string input;
        int status;
        std::string out, err;
    } cases[] = {
        {"get " + url + "/small.txt", 0, "HTTP/1.1 200 OK\r\n", ""},
        {"get " + url + "/echo?q=1&r=2", 0, "\r\n\r\nargs=q=1&r=2 a= b=\n", ""},
        {"tcp localhost " + port + " \"GET /small.txt HTTP/1.0\\n\"", 0, "\r\n\r\nhello\n", ""},
        {"get ftp://127.0.0.1/", 1, "", "get: not an http URL with a host: ftp://127.0.0.1/"},
        {"get -t 1 http://127.0.0.1:" + std::to_string(orvtest::free_port()), 3, "", "connection failed"},
        {"get " + url + "/" + std::string(1100, 'p'), 4, "", "get: cannot send the request"},
        {"get -t 1 http://127.0.0.1:" + silent + "/", 5, "", "get: no complete response within 1 seconds"},
        {"tcp -t 1 127.0.0.1 " + silent + " hello", 5, "", "tcp: no reply within 1 seconds"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.input);
        Result r = admin({}, c.input + "\n");
        EXPECT_EQ(c.status, r.status);
        EXPECT_TRUE(has(r.out, c.out)) << r.out;
        EXPECT_TRUE(has(r.err, c.err)) << r.err;
    }
    close(mute);
}

TEST(Orvadmin, LogTailReadsBackIntoRolledFiles) {
    orvtest::TempDir dir;
    const std::string f = dir.file("svc.log");
    orvtest::write_file(f + ".20261120T000000.000000Z", "r1\nr2\n");
    orvtest::write_file(f + ".20261121T000000.000000Z", "r3\nr4\n");
    orvtest::write_file(f + ".lock", "");
    orvtest::write_file(f, "r5\n");
    const Step steps[] = {
        {"log tail " + f + " 4", 0, "r2\nr3\nr4\nr5\n", ""},
        {"log tail " + f + " 1", 0, "r5\n", ""},
        {"log tail " + f, 0, "r1\nr2\nr3\nr4\nr5\n", ""},
        {"log tail " + dir.file("none.log"), 1, "",
         "log: cannot read " + dir.file("none.log") + ": No such file or directory\n"},
        {"log tail " + f + " 0", 1, "", "log: usage: log tail file [count]\n"},
    };
    run_steps(steps);
}

// As scripts/demo runs it: on a copy of the sample file, in a zone west of UTC.
TEST(Orvadmin, TourRunsClean) {
    const char *src = std::getenv("ORV_SOURCE_DIR");
    if (!src) src = ORV_SOURCE_TREE;
    orvtest::TempDir dir;
    orvtest::write_file(dir.file("orv.conf"), orvtest::read_file(std::string(src) + "/examples/orv.conf"));
    orvtest::ScopedEnv tz("TZ", "EST5EDT,M3.2.0,M11.1.0");
    Result r = run({ORVADMIN_PATH, "-c", "orv.conf", "-I", std::string(src) + "/examples/tour.orv"}, "", dir.path());
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_TRUE(has(r.out, "Importing commands from: tour.orv\n"));
    EXPECT_TRUE(has(r.out, "local = 1107962100 20050209T101500\n")) << r.out;
}

// A service's life through the commands: waited for, shown, refreshed,
// listed, stopped; then a stale pid file, a start, and bad arguments.
TEST(Orvadmin, ServiceCommands) {
    orvtest::TempDir dir;
    const std::string conf = dir.file("orv.conf");
    orvtest::write_file(conf, "local.instancedir = " + dir.path() + "\nservice.admin.sleeptime = 1\n");
    orvtest::Child svc({ORVSVCD_PATH, "-c", conf, "-p", std::to_string(orvtest::free_port()), "-w", "1"});
    const std::string pid = std::to_string(svc.pid());
    auto cmd = [&](const std::string &input) { return admin({"-c", conf}, input); };

    Result r = cmd("wait orvsvcd ready 30\nstatus orvsvcd\nrefresh orvsvcd\nps ORVSVCD\n");
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(has(r.out, "orvsvcd is ready, pid " + pid + "\n")) << r.out;
    EXPECT_TRUE(has(r.out, "service = orvsvcd\nstate = ready\npid = " + pid + "\nchildren = ")) << r.out;
    EXPECT_TRUE(has(r.out, "orvsvcd refreshed\n")) << r.out;
    // ps may list other tests' daemons too.
    EXPECT_TRUE(has(r.out, "\n" + pid + " orvsvcd\n")) << r.out;

    // The service is this test's child: reap it while orvadmin stops it.
    auto stopping = std::async(std::launch::async, [&] { return cmd("stop orvsvcd 20\n"); });
    while (stopping.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) svc.running();
    r = stopping.get();
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("orvsvcd stopped\n", r.out);
    r = cmd("status orvsvcd\n");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("service = orvsvcd\nstate = stopped\n", r.out);

    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    waitpid(gone, nullptr, 0);
    orvtest::write_file(dir.file("run/orvsvcd.pid"), "pid " + std::to_string(gone) + " 0\nstate ready\n");
    r = cmd("status orvsvcd\n");
    EXPECT_EQ(1, r.status);
    EXPECT_TRUE(has(r.out, "state = stale\npid = " + std::to_string(gone) + " (gone)\n")) << r.out;
    r = cmd("stop orvsvcd 5\n");
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("orvsvcd was not running; its stale pid file is removed\n", r.out);
    EXPECT_FALSE(orvtest::file_exists(dir.file("run/orvsvcd.pid")));

    r = cmd("start /bin/sh -c \"echo started > " + dir.file("mark") + "\"\n");
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(orvtest::wait_until([&] { return orvtest::read_file(dir.file("mark")) == "started\n"; },
                                    std::chrono::seconds(20)));

    struct Bad {
        const char *input, *err;
    };
    const Bad bad[] = {
        {"wait orvsvcd soon 5\n", "wait: usage: wait SERVICE ready|stopped SECONDS\n"},
        {"stop orvsvcd -1\n", "stop: -1 is not a number of seconds (0-86400)\n"},
        {"stop orvsvcd 1\n", "stop: orvsvcd is not running\n"},
        {"refresh orvsvcd\n", "refresh: orvsvcd cannot be refreshed\n"},
        {"start /no/such/program\n", "start: cannot run /no/such/program: No such file or directory\n"},
        {"ps no-such-program-here\n", "ps: no process named no-such-program-here\n"},
        {"status ../x\n", ""},
    };
    for (const Bad &b : bad) {
        r = cmd(b.input);
        EXPECT_EQ(1, r.status) << b.input;
        EXPECT_TRUE(has(r.err, b.err)) << r.err;
    }
}

// Runs orvadmin on a pseudo-terminal and types each input once the prompt
// before it has appeared, as a person would; bounded by a time-out.
Result on_terminal(const std::vector<std::string> &inputs) {
    int fd = -1;
    pid_t pid = forkpty(&fd, nullptr, nullptr, nullptr);
    if (pid == 0) {
        execl(ORVADMIN_PATH, ORVADMIN_PATH, "-h", "tty.example", static_cast<char *>(nullptr));
        _exit(127);
    }
    Result r;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    auto read_some = [&] {
        pollfd p{fd, POLLIN, 0};
        char buf[4096];
        ssize_t n = poll(&p, 1, 100) > 0 ? read(fd, buf, sizeof buf) : 0;
        if (n > 0) r.out.append(buf, static_cast<size_t>(n));
        return n >= 0 && std::chrono::steady_clock::now() < deadline;  // EIO: the tool has gone
    };
    size_t prompts = 0;
    for (const std::string &in : inputs) {
        for (size_t seen = 0; seen <= prompts && read_some();)
            for (size_t at = seen = 0; (at = r.out.find("orvadmin> ", at)) != std::string::npos; ++at) ++seen;
        ++prompts;
        // Typed once the editor reads keys one by one: before that the
        // terminal's line mode would take Ctrl-D and Ctrl-P itself.
        termios mode{};
        while (tcgetattr(fd, &mode) == 0 && (mode.c_lflag & ICANON) != 0 && read_some()) {
        }
        EXPECT_EQ(static_cast<ssize_t>(in.size()), write(fd, in.data(), in.size()));
    }
    while (read_some()) {  // up to the tool's end
    }
    r.status = reap(pid, deadline);
    close(fd);
    return r;
}

// Two sessions: the first ends with Ctrl-D, the second recalls the first
// one's last command from the saved history (Ctrl-P) and ends with quit.
TEST(Orvadmin, InteractiveSessionsOnTerminal) {
    orvtest::TempDir home;
    orvtest::ScopedEnv env("HOME", home.path().c_str());
    Result r = on_terminal({"info\n", "md5 abc\n", "\x04"});
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_TRUE(has(r.out, "host = tty.example\r\nport = 80\r\n")) << r.out;
    EXPECT_TRUE(has(r.out, "md5 = 900150983cd24fb0d6963f7d28e17f72\r\n")) << r.out;

    r = on_terminal({"\x10\n", "quit\n"});
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_TRUE(has(r.out, "md5 = 900150983cd24fb0d6963f7d28e17f72\r\n")) << r.out;
}

}  // namespace
