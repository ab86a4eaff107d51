#include "slapd.hpp"

#include <sys/stat.h>

#include <csignal>
#include <stdexcept>

#include "orvutil/platform/config.h"

namespace orvtest {

namespace {

const char *const kClientSubjects[] = {"/O=Orvane Test/OU=People/CN=Carla Cert",
                                       "/O=Orvane Test/OU=People/CN=Other Cert"};

std::string person(const std::string &uid, const std::string &password, const std::string &extra) {
    return "dn: uid=" + uid + ",ou=People,dc=example,dc=com\nobjectClass: inetOrgPerson\nobjectClass: orvAccount\n" +
           "uid: " + uid + "\ncn: " + uid + "\nsn: " + uid + "\nuserPassword: " + password + "\n" + extra + "\n";
}

}  // namespace

config_cache *config_with(const std::vector<std::pair<std::string, std::string>> &entries) {
    config_cache *cache = config_newcache();
    for (const auto &[name, value] : entries) {
        const char *values[] = {value.c_str()};
        config_add_entry(cache, name.c_str(), values, 1);
    }
    return cache;
}

std::string source_file(const std::string &relative) { return std::string(ORV_SOURCE_DIR) + "/" + relative; }

void run_program(const std::vector<std::string> &argv, const std::string &dir) {
    std::vector<std::string> args = argv;
    args[0] = find_program(argv[0]);
    if (args[0].empty()) throw std::runtime_error(argv[0] + " not found");
    const std::string log = dir + "/run.log";
    int status;
    {
        Child child(args, Child::Options{{}, log, dir});
        status = child.wait(std::chrono::seconds(60));
    }
    if (status != 0) throw std::runtime_error(argv[0] + " failed: " + read_file(log));
}

Pki::Pki() {
    const std::string d = dir_.path();
    auto req = [&](const std::string &name, const std::string &subject) {
        run_program({"openssl", "req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                     "-keyout", name + ".key", "-out", name + ".csr", "-subj", subject},
                    d);
    };
    run_program({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                 "-keyout", "ca.key", "-out", "ca.pem", "-days", "2", "-subj", "/O=Orvane Test/CN=Orvane Test CA"},
                d);
    write_file(d + "/server.ext", "subjectAltName=IP:127.0.0.1,DNS:localhost\n");
    req("server", "/O=Orvane Test/CN=localhost");
    run_program({"openssl", "x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
                 "-days", "2", "-extfile", "server.ext", "-out", "server.pem"},
                d);
    for (int i = 0; i < 2; ++i) {
        const std::string name = "client" + std::to_string(i);
        req(name, kClientSubjects[i]);
        run_program({"openssl", "x509", "-req", "-in", name + ".csr", "-CA", "ca.pem", "-CAkey", "ca.key",
                     "-CAcreateserial", "-days", "2", "-out", name + ".pem"},
                    d);
        run_program({"openssl", "x509", "-in", name + ".pem", "-outform", "DER", "-out", name + ".der"}, d);
        run_program({"openssl", "base64", "-A", "-in", name + ".der", "-out", name + ".b64"}, d);
    }
}

const Pki &Pki::shared() {
    static const Pki pki;
    return pki;
}

std::string Pki::client_der_base64(int i) const { return read_file(dir_.file("client" + std::to_string(i) + ".b64")); }

const char *Pki::client_subject(int i) {
    return i == 0 ? "CN=Carla Cert,OU=People,O=Orvane Test" : "CN=Other Cert,OU=People,O=Orvane Test";
}

std::string sample_directory(const Pki *pki) {
    std::string ldif =
        "dn: dc=example,dc=com\nobjectClass: dcObject\nobjectClass: organization\ndc: example\no: Example\n\n"
        "dn: ou=People,dc=example,dc=com\nobjectClass: organizationalUnit\nou: People\n\n";
    ldif += person("alice", "alice-pw", "orvProxyFor: bob\n");
    ldif += person("bob", "bob-pw", "");
    ldif += person("hashed", "{SSHA}aPVAAtV71g8QDwZgD4uNQCih9s80lpWI", "");
    ldif += person("locked", "locked-pw", "pwdAccountLockedTime: 20200101000000Z\n");
    ldif += person("disabled", "disabled-pw", "orvAccountDisabled: TRUE\n");
    ldif += person("admin", "admin-pw", "orvProxyFor: *\n");
    std::string cert = "cn: Carla Cert\norvCertSubject: " + std::string(Pki::client_subject(0)) + "\n";
    if (pki != nullptr) cert += "userCertificate;binary:: " + pki->client_der_base64(0) + "\n";
    ldif += person("certuser", "cert-pw", cert);
    std::string other = "cn: Other Cert\n";
    if (pki != nullptr) other += "userCertificate;binary:: " + pki->client_der_base64(0) + "\n";
    ldif += person("otheruser", "other-pw", other);
    return ldif;
}

Slapd::Slapd(const std::string &ldif) {
    const std::string d = dir_.path();
    mkdir((d + "/db").c_str(), 0700);
    // loglevel 0: slapd logs only to syslog, which tests have none of; each
    // line would still cost it a failed connect to the log socket.
    write_file(d + "/slapd.conf",
               "include /etc/ldap/schema/core.schema\n"
               "include /etc/ldap/schema/cosine.schema\n"
               "include /etc/ldap/schema/inetorgperson.schema\n"
               "include " +
                   source_file("examples/orvutil.schema") +
                   "\n"
                   "loglevel 0\nmodulepath /usr/lib/ldap\nmoduleload back_mdb\nmoduleload ppolicy\n"
                   "pidfile " +
                   d +
                   "/slapd.pid\n"
                   "database mdb\nsuffix \"" +
                   kSuffix + "\"\nrootdn \"" + kRootDn + "\"\nrootpw " + kRootPw +
                   "\n"
                   "directory " +
                   d +
                   "/db\nmaxsize 10485760\n"
                   "index uid eq\n"
                   "access to attrs=userPassword by self read by anonymous auth by * none\n"
                   "access to * by * read\n");
    write_file(d + "/data.ldif", ldif);
    run_program({"slapadd", "-f", d + "/slapd.conf", "-l", d + "/data.ldif"}, d);
    start();
}

Slapd::~Slapd() {
    if (frozen_ && child_) child_->signal(SIGCONT);
}

void Slapd::start() {
    if (child_) return;
    const std::string slapd = find_program("slapd");
    if (slapd.empty()) throw std::runtime_error("slapd not found");
    // A free port can be taken by someone else before slapd binds it: try a
    // few, but keep the port once known (restarts must come back on it).
    for (int attempt = 0; attempt < 5; ++attempt) {
        const bool fixed = port_ != 0;
        if (!fixed) port_ = free_port();
        child_ = std::make_unique<Child>(
            std::vector<std::string>{slapd, "-d", "0", "-f", dir_.file("slapd.conf"), "-h", uri()},
            Child::Options{{}, dir_.file("slapd.log"), dir_.path()});
        if (wait_until([&] { return !child_->running() || wait_for_port(port_, std::chrono::milliseconds(50)); },
                       std::chrono::seconds(20)) &&
            child_->running())
            return;
        child_.reset();
        if (!fixed) port_ = 0;
    }
    throw std::runtime_error("slapd did not start: " + read_file(dir_.file("slapd.log")));
}

void Slapd::stop() {
    if (!child_) return;
    thaw();
    child_->stop();
    child_.reset();
}

void Slapd::freeze() {
    if (child_ && !frozen_) child_->signal(SIGSTOP);
    frozen_ = child_ != nullptr;
}

void Slapd::thaw() {
    if (child_ && frozen_) child_->signal(SIGCONT);
    frozen_ = false;
}

}  // namespace orvtest
