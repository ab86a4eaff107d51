// Test fixtures for authentication: a small PKI made with the openssl
// command, and real directory servers (slapd) on loopback ports, each in a
// temporary directory and always stopped.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orvproc.hpp"
#include "orvtest.hpp"
#include "orvutil/platform/config.h"

namespace orvtest {

// A new configuration cache holding the given name/value pairs (free it with
// config_freecache).
config_cache *config_with(const std::vector<std::pair<std::string, std::string>> &entries);

// A file of the source tree, e.g. "examples/certmap.conf".
std::string source_file(const std::string &relative);

// Runs a program (found by find_program) to completion within 60 s; throws
// std::runtime_error with its output when it fails.
void run_program(const std::vector<std::string> &argv, const std::string &dir);

// A CA, a server certificate for 127.0.0.1/localhost and two client
// certificates, all PEM files in a temporary directory. Subjects:
//   client 0: CN=Carla Cert,OU=People,O=Orvane Test   (mapped by the sample
//             directory's certuser entry, which also holds the certificate)
//   client 1: CN=Other Cert,OU=People,O=Orvane Test   (in no entry)
class Pki {
  public:
    Pki();
    // One set for the whole test program (made on first use).
    static const Pki &shared();
    std::string ca() const { return dir_.file("ca.pem"); }
    std::string server_cert() const { return dir_.file("server.pem"); }
    std::string server_key() const { return dir_.file("server.key"); }
    std::string client_cert(int i) const { return dir_.file("client" + std::to_string(i) + ".pem"); }
    std::string client_key(int i) const { return dir_.file("client" + std::to_string(i) + ".key"); }
    // The client certificate in DER, base64 on one line (for LDIF).
    std::string client_der_base64(int i) const;
    static const char *client_subject(int i);
    const std::string &dir() const { return dir_.path(); }

  private:
    TempDir dir_;
};

// Entries of the sample directory under dc=example,dc=com (ou=People):
//   alice    password "alice-pw"                orvProxyFor: bob
//   bob      password "bob-pw"
//   hashed   userPassword {SSHA} of "hashed-pw"
//   locked   password "locked-pw", pwdAccountLockedTime set
//   disabled password "disabled-pw", orvAccountDisabled TRUE
//   admin    password "admin-pw", orvProxyFor: *
//   certuser password "cert-pw", cn "Carla Cert", userCertificate of pki
//            client 0 (when pki is given), orvCertSubject its subject
//   otheruser password "other-pw", cn "Other Cert" (client 1's), but the
//            userCertificate of client 0
std::string sample_directory(const Pki *pki);

// A slapd serving dc=example,dc=com from a fresh database loaded with ldif
// (which must hold the suffix entry), on 127.0.0.1 and a free port. The
// manager is kRootDn / kRootPw. The constructor throws std::runtime_error
// when slapd cannot be started; the destructor always stops it.
class Slapd {
  public:
    static constexpr const char *kSuffix = "dc=example,dc=com";
    static constexpr const char *kRootDn = "cn=manager,dc=example,dc=com";
    static constexpr const char *kRootPw = "manager-pw";

    explicit Slapd(const std::string &ldif);
    ~Slapd();
    Slapd(const Slapd &) = delete;
    Slapd &operator=(const Slapd &) = delete;

    int port() const { return port_; }
    std::string uri() const { return "ldap://127.0.0.1:" + std::to_string(port_) + "/"; }
    bool running() const { return child_ != nullptr; }
    // Its process id, -1 when stopped.
    pid_t pid() const { return child_ ? child_->pid() : -1; }
    // Stops slapd (SIGTERM, then SIGKILL) and waits until it is gone.
    void stop();
    // Starts it again on the same port and database; waits until it answers.
    void start();
    // SIGSTOP / SIGCONT: a server that hangs instead of refusing.
    void freeze();
    void thaw();

  private:
    TempDir dir_;
    int port_ = 0;
    std::unique_ptr<Child> child_;
    bool frozen_ = false;
};

}  // namespace orvtest
