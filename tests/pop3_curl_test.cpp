// orvpop3d end to end: a real directory, the server on loopback ports and
// the curl command line as the client, over every mechanism, in clear, after
// STLS and on the implicit TLS port; then malformed client data.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "orvutil/platform/counter.h"
#include "slapd.hpp"

namespace {

using namespace std::chrono_literals;
using Settings = std::vector<std::pair<std::string, std::string>>;

const char kMessage1[] = "Subject: one\r\n\r\n.a line that starts with a dot\r\n";

// orvpop3d with its own home (configuration, certificate map, mailbox and
// logs) over the given directory, on two free ports.
struct Pop3d {
    orvtest::TempDir home;
    int port = 0, tls_port = 0;
    std::unique_ptr<orvtest::Child> child;

    Pop3d(const orvtest::Slapd &slapd, const Settings &extra) {
        const orvtest::Pki &pki = orvtest::Pki::shared();
        std::filesystem::create_directories(home.file("config"));
        std::filesystem::create_directories(home.file("mail"));
        orvtest::write_file(home.file("config/certmap.conf"), "issuer default\nfilter cn\ncompare on\n");
        orvtest::write_file(home.file("config/counter.conf"),
                            orvtest::read_file(orvtest::source_file("examples/counter.conf")));
        orvtest::write_file(home.file("mail/1"), kMessage1);
        orvtest::write_file(home.file("mail/2"), "Subject: two\r\n\r\nbody\r\n");
        Settings s = {{"ldap.servers", slapd.uri()},
                      {"ldap.binddn", orvtest::Slapd::kRootDn},
                      {"ldap.bindpassword", orvtest::Slapd::kRootPw},
                      {"ldap.basedn", orvtest::Slapd::kSuffix},
                      {"local.instancedir", home.path()},
                      {"logfile.logdir", home.file("logs")},
                      {"service.pop3.mailbox", home.file("mail")},
                      {"service.pop3.tls.certfile", pki.server_cert()},
                      {"service.pop3.tls.keyfile", pki.server_key()},
                      {"service.pop3.tls.cafile", pki.ca()},
                      {"service.pop3.tls.verifyclient", "on"}};
        s.insert(s.end(), extra.begin(), extra.end());
        std::string conf;
        for (const auto &[k, v] : s) conf += k + " = " + v + "\n";
        orvtest::write_file(home.file("config/orv.conf"), conf);
        // A free port may be taken before the server binds it: try again.
        for (int attempt = 0; attempt < 5 && child == nullptr; ++attempt) {
            port = orvtest::free_port();
            tls_port = orvtest::free_port();
            child = std::make_unique<orvtest::Child>(
                std::vector<std::string>{ORVPOP3D, "-p", std::to_string(port), "-s", std::to_string(tls_port)},
                orvtest::Child::Options{{"ORV_HOME=" + home.path()}, home.file("server.log"), home.path()});
            if (!orvtest::wait_for_port(port, 30s) || !orvtest::wait_for_port(tls_port, 5s)) child.reset();
        }
        if (child == nullptr) ADD_FAILURE() << orvtest::read_file(home.file("server.log"));
    }
};

// What curl made of one session: "+" when it got message 1, else the
// server's last "-ERR" text, or "-" when the server refused nothing (curl
// gave up itself).
std::string curl(const Pop3d &server, const std::string &args) {
    const orvtest::Pki &pki = orvtest::Pki::shared();
    std::vector<std::string> argv = {
        orvtest::find_program("curl"), "-v", "-s", "--max-time", "30", "--cacert", pki.ca()};
    for (size_t at = 0, next; at < args.size(); at = next + 1) {
        next = args.find(' ', at);
        if (next == std::string::npos) next = args.size();
        std::string word = args.substr(at, next - at);
        for (const char *tag : {"%C0", "%K0", "%C1", "%K1"})
            if (word == tag) word = tag[1] == 'C' ? pki.client_cert(tag[2] - '0') : pki.client_key(tag[2] - '0');
        if (word.rfind("pop3", 0) == 0)
            word += "://127.0.0.1:" + std::to_string(word == "pop3s" ? server.tls_port : server.port) + "/1";
        argv.push_back(word);
    }
    static int serial = 0;
    const std::string log = server.home.file("curl" + std::to_string(++serial) + ".log");
    int status;
    {
        orvtest::Child child(argv, orvtest::Child::Options{{}, log, ""});
        status = child.wait(60s);
    }
    const std::string out = orvtest::read_file(log);
    if (status == 0 && out.find(".a line that starts with a dot") != std::string::npos) return "+";
    const size_t err = out.rfind("< -ERR ");
    if (err == std::string::npos) return "-";
    std::string text = out.substr(err + 7, out.find('\n', err) - err - 7);
    if (!text.empty() && text.back() == '\r') text.pop_back();
    return text.rfind("[AUTH] ", 0) == 0 ? text.substr(7) : text;
}

TEST(Pop3Curl, EveryMechanismAndPolicyAgainstARealDirectory) {
    if (orvtest::find_program("curl").empty()) GTEST_SKIP() << "curl not installed";
    const orvtest::Pki &pki = orvtest::Pki::shared();
    orvtest::Slapd slapd(orvtest::sample_directory(&pki));
    const char *bad = "Invalid credentials";
    struct Row {
        Settings settings;
        std::vector<std::pair<const char *, const char *>> cases;  // curl arguments, result
    } rows[] = {
        {{{"local.ugldaphasplainpasswords", "on"}},
         {{"-u alice:alice-pw --login-options AUTH=PLAIN pop3", "+"},
          {"-u alice:wrong --login-options AUTH=PLAIN pop3", bad},
          {"-u nobody:wrong --login-options AUTH=PLAIN pop3", bad},
          {"-u locked:locked-pw --login-options AUTH=PLAIN pop3", "Account locked"},
          {"-u bob:bob-pw --login-options AUTH=LOGIN pop3", "+"},
          {"-u bob:wrong --login-options AUTH=LOGIN pop3", bad},
          {"-u alice:alice-pw --login-options AUTH=CRAM-MD5 pop3", "+"},
          {"-u alice:wrong --login-options AUTH=CRAM-MD5 pop3", "Password incorrect"},
          {"-u nobody:wrong --login-options AUTH=CRAM-MD5 pop3", bad},
          {"-u bob:bob-pw --login-options AUTH=+APOP pop3", "+"},
          {"-u bob:wrong --login-options AUTH=+APOP pop3", "Password incorrect"},
          {"-u alice:alice-pw --ssl-reqd --login-options AUTH=PLAIN pop3", "+"},
          {"-u certuser: --cert %C0 --key %K0 --login-options AUTH=EXTERNAL pop3s", "+"},
          {"-u alice: --cert %C0 --key %K0 --login-options AUTH=EXTERNAL pop3s", "Not authorized to act for this user"},
          {"-u otheruser: --cert %C1 --key %K1 --login-options AUTH=EXTERNAL pop3s",
           "The certificate does not match the directory entry's"}}},
        // Without SASL in CAPA and without APOP curl falls back to USER/PASS.
        {{{"service.pop3.sasl", "off"}},
         {{"-u alice:alice-pw pop3", "+"},
          {"-u alice:wrong pop3", bad},
          {"-u bob:bob-pw --login-options AUTH=+APOP pop3", "-"}}},
        // No mechanism is left to offer, so curl falls back to USER/PASS.
        {{{"service.pop3.plaintextmincipher", "-1"}},
         {{"-u alice:alice-pw pop3s", "Plaintext passwords not accepted"}}},
        {{{"service.pop3.plaintextmincipher", "128"}},
         {{"-u alice:alice-pw pop3", "SSL encryption required for plaintext passwords"},
          {"-u alice:alice-pw --ssl-reqd --login-options AUTH=PLAIN pop3", "+"},
          {"-u bob:bob-pw --login-options AUTH=LOGIN pop3s", "+"}}},
        {{{"service.pop3.plaintextmincipher", "512"}},
         {{"-u alice:alice-pw pop3s", "Stronger SSL encryption required for plaintext passwords"}}},
    };
    for (const Row &row : rows) {
        Pop3d server(slapd, row.settings);
        for (const auto &[args, want] : row.cases)
            EXPECT_EQ(curl(server, args), want)
                << args << " with " << row.settings[0].first << "=" << row.settings[0].second;
    }
}

// One raw conversation: each line is sent, then one reply line is read
// ("<read>" only reads, "<close>" hangs up). The last reply, or "" at the end.
std::string converse(int port, const std::vector<std::string> &lines) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(static_cast<uint16_t>(port));
    sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string buffered, reply;
    auto read_reply = [&] {
        for (size_t eol; (eol = buffered.find("\r\n")) == std::string::npos;) {
            pollfd p{fd, POLLIN, 0};
            char chunk[4096];
            const ssize_t n = poll(&p, 1, 30000) == 1 ? read(fd, chunk, sizeof chunk) : -1;
            if (n <= 0) return std::string();
            buffered.append(chunk, static_cast<size_t>(n));
        }
        const size_t eol = buffered.find("\r\n");
        std::string line = buffered.substr(0, eol);
        buffered.erase(0, eol + 2);
        return line;
    };
    if (connect(fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa) == 0) {
        reply = read_reply();
        for (const std::string &line : lines) {
            if (line == "<close>") break;
            const std::string out = line + "\r\n";
            if (line != "<read>" && send(fd, out.data(), out.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(out.size()))
                break;
            reply = read_reply();
        }
    }
    close(fd);
    return reply;
}

TEST(Pop3Curl, MalformedClientDataIsRefusedAndTheServerKeepsServing) {
    if (orvtest::find_program("curl").empty()) GTEST_SKIP() << "curl not installed";
    orvtest::Slapd slapd(orvtest::sample_directory(nullptr));
    Pop3d server(slapd, {});
    const std::string longline(20000, 'A');
    struct Case {
        std::vector<std::string> lines;
        const char *want;
    } cases[] = {
        {{"AUTH PLAIN !!!!"}, "-ERR Invalid base64 data"},
        {{"AUTH PLAIN YWxpY2U="}, "-ERR [AUTH] Invalid syntax"},     // "alice": no NUL at all
        {{"AUTH PLAIN", "AGFsaWNl"}, "-ERR [AUTH] Invalid syntax"},  // one NUL
        {{"AUTH PLAIN", "*"}, "-ERR Authentication cancelled"},
        {{"AUTH PLAIN", "<close>"}, "+ "},
        {{"AUTH KERBEROS_V4"}, "-ERR Unsupported mechanism"},
        {{"AUTH LOGIN", "YWxpY2U=", "<close>"}, "+ UGFzc3dvcmQ6"},
        {{"AUTH " + longline}, "-ERR Line too long"},
        {{"PASS x"}, "-ERR USER first"},
        {{"STAT"}, "-ERR Unknown command"},
        {{"USER alice", "PASS a", "USER alice", "PASS b", "USER alice", "PASS c", "<read>"}, "-ERR Too many failures"},
        {{"USER alice", "PASS alice-pw", "STAT", "DELE 1", "LIST 1", "RSET", "UIDL 2"}, "+OK 2 2"},
        {{"USER alice", "PASS alice-pw", "RETR 9"}, "-ERR No such message"},
    };
    for (const Case &c : cases) EXPECT_EQ(converse(server.port, c.lines), c.want) << c.lines[0];
    EXPECT_EQ(curl(server, "-u alice:alice-pw pop3"), "+");
    EXPECT_TRUE(server.child->running());

    // The server counted what it saw (before it answered).
    countermsg_registry *registry = countermsg_get_registry(server.home.file("counter").c_str(), 0);
    counterobject *object = nullptr;
    ASSERT_EQ(counterobject_open(registry, "auth", &object), 0);
    char names[4][COUNTER_NAME_SIZE];
    std::vector<uint64_t> values(4 * counterobject_counters(object));
    ASSERT_GE(counterobject_snapshot(object, names, values.data(), 4), 1);
    const std::pair<const char *, uint64_t> counts[] = {
        {"logins", 3}, {"failures-user", 3}, {"failures-plain", 2}, {"failures", 5}};
    for (const auto &[name, want] : counts) {
        int index = 0;
        counterhandle h = 0;
        counterobject_getcounterinfo(object, name, &h, nullptr, nullptr, &index);
        EXPECT_EQ(values[index], want) << name;  // the global instance's row
    }
    counterobject_close(object);
    countermsg_free_registry(registry);
}

}  // namespace
