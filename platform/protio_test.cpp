#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/ssl.h>

#include <string>
#include <thread>

#include "orvutil/platform/protio.h"
#include "slapd.hpp"

namespace {

struct Pipe {
    int fds[2];
    Pipe() { EXPECT_EQ(pipe(fds), 0); }
    ~Pipe() {
        close(fds[0]);
        if (fds[1] >= 0) close(fds[1]);
    }
    void send(const std::string &s) { ASSERT_EQ(write(fds[1], s.data(), s.size()), ssize_t(s.size())); }
    void hang_up() {
        close(fds[1]);
        fds[1] = -1;
    }
};

TEST(ProtInput, LinesBytesAndPiecesAcrossBufferRefills) {
    // A line longer than PROT_BUFSIZE forces refills in the middle of fgets.
    const std::string longline = std::string(PROT_BUFSIZE + 10, 'x') + "\n";
    Pipe p;
    protstream *s = prot_new(p.fds[0], 0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(prot_putc('a', s), -1);  // output on a reading stream fails
    p.send("USER a\r\nPASS b");
    char buf[8];
    EXPECT_STREQ(prot_fgets(buf, sizeof buf, s), "USER a\r");  // piece of 7
    EXPECT_STREQ(prot_fgets(buf, sizeof buf, s), "\n");
    EXPECT_EQ(prot_getc(s), 'P');
    EXPECT_EQ(prot_ungetc('Q', s), 'Q');
    EXPECT_EQ(prot_getc(s), 'Q');
    char raw[3];
    EXPECT_EQ(prot_read(s, raw, 3), 3);
    EXPECT_EQ(std::string(raw, 3), "ASS");
    p.send("\n" + longline);
    p.hang_up();
    std::string all;
    char big[100];
    while (char *line = prot_fgets(big, sizeof big, s)) all += line;
    EXPECT_EQ(all, " b\n" + longline);
    EXPECT_EQ(s->eof, 1);
    EXPECT_EQ(s->error, 0);
    EXPECT_EQ(prot_getc(s), EOF);
    prot_free(s);
}

TEST(ProtInput, ReadTimeOutSetsTheErrorFlag) {
    Pipe p;
    protstream *s = prot_new(p.fds[0], 0);
    prot_settimeout(s, 1);
    char buf[4];
    EXPECT_EQ(prot_fgets(buf, sizeof buf, s), nullptr);
    EXPECT_EQ(s->error, PROT_ERR_TIMEOUT);
    p.send("late");
    EXPECT_EQ(prot_read(s, buf, 4), 0);  // a stopped stream stays stopped
    prot_free(s);
}

}  // namespace

namespace {

// A listening loopback socket; accept waits at most 30 s.
struct Listener {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    int port = 0;
    Listener() {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&a), len), 0);
        EXPECT_EQ(listen(fd, 4), 0);
        getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len);
        port = ntohs(a.sin_port);
    }
    ~Listener() { close(fd); }
    int accept_one() {
        pollfd p{fd, POLLIN, 0};
        return poll(&p, 1, 30000) == 1 ? accept(fd, nullptr, nullptr) : -1;
    }
};

int connect_loopback(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0) return fd;
    close(fd);
    return -1;
}

// A server context without client certificates.
struct ServerTls {
    config_cache *conf = orvtest::config_with(
        {{"tls.certfile", orvtest::Pki::shared().server_cert()}, {"tls.keyfile", orvtest::Pki::shared().server_key()}});
    prot_tls_ctx *ctx = prot_tls_ctx_new(conf, nullptr, nullptr);
    ~ServerTls() {
        prot_tls_ctx_free(ctx);
        config_freecache(conf);
    }
};

TEST(ProtTls, ImplicitAndStartTlsWithTheClientCertificateCarried) {
    const orvtest::Pki &pki = orvtest::Pki::shared();
    config_cache *conf = orvtest::config_with({{"tls.certfile", pki.server_cert()},
                                               {"tls.keyfile", pki.server_key()},
                                               {"tls.cafile", pki.ca()},
                                               {"tls.verifyclient", "on"}});
    const char *err = nullptr;
    prot_tls_ctx *ctx = prot_tls_ctx_new(conf, nullptr, &err);
    ASSERT_NE(ctx, nullptr) << err;
    struct Case {
        bool starttls;
        int client;  // -1: no client certificate
    };
    for (const Case c : {Case{false, 0}, Case{true, -1}}) {
        Listener l;
        std::string cmd =
            "(printf 'HELLO\\r\\n'; sleep 30) | openssl s_client -connect 127.0.0.1:" + std::to_string(l.port) +
            " -CAfile " + pki.ca();
        if (c.starttls) cmd += " -starttls pop3";
        if (c.client >= 0) cmd += " -cert " + pki.client_cert(c.client) + " -key " + pki.client_key(c.client);
        const std::string log = pki.dir() + "/client.log";
        orvtest::Child client({"/bin/sh", "-c", cmd}, orvtest::Child::Options{{}, log, ""});
        const int fd = l.accept_one();
        ASSERT_GE(fd, 0);
        protstream *in = prot_new(fd, 0), *out = prot_new(fd, 1);
        prot_settimeout(in, 30);
        int bits = -1;
        prot_ssl_info *info = nullptr;
        EXPECT_EQ(prot_ssl_get_info(in, &bits, &info), 0);
        EXPECT_EQ(bits, 0);
        EXPECT_EQ(info, nullptr);
        char line[64];
        if (c.starttls) {
            prot_printf(out, "+OK ready\r\n");
            prot_flush(out);
            ASSERT_NE(prot_fgets(line, sizeof line, in), nullptr);
            EXPECT_STREQ(line, "STLS\r\n");
            prot_printf(out, "+OK begin TLS\r\n");
        }
        ASSERT_EQ(prot_starttls(in, out, ctx, &err), 0) << err;
        ASSERT_NE(prot_fgets(line, sizeof line, in), nullptr);
        EXPECT_STREQ(line, "HELLO\r\n");
        prot_printf(out, "+OK secret reply\r\n");
        EXPECT_EQ(prot_flush(out), 0);
        ASSERT_EQ(prot_ssl_get_info(out, &bits, &info), 0);
        EXPECT_GE(bits, 128);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->bits, bits);
        EXPECT_EQ(info->cert != nullptr, c.client >= 0);
        if (c.client >= 0) {
            EXPECT_STREQ(info->subject, orvtest::Pki::client_subject(c.client));
        }
        prot_ssl_free_info(info);
        EXPECT_TRUE(
            orvtest::wait_until([&] { return orvtest::read_file(log).find("+OK secret reply") != std::string::npos; },
                                std::chrono::seconds(30)));
        prot_free(in);
        prot_free(out);
        close(fd);
    }
    prot_tls_ctx_free(ctx);
    config_freecache(conf);
}

// Bytes a client sends after its STARTTLS command, in clear, must not be
// read as if they had come through TLS.
TEST(ProtTls, StartTlsDropsWhatCameBeforeTheHandshake) {
    ServerTls tls;
    prot_tls_ctx *ctx = tls.ctx;
    ASSERT_NE(ctx, nullptr);
    Listener l;
    std::thread client([port = l.port] {
        const int fd = connect_loopback(port);
        if (fd >= 0 && write(fd, "STLS\r\nINJECTED\r\n", 16) == 16) {
            char reply[16];
            for (size_t got = 0; got < 5;) {  // "+OK\r\n"
                const ssize_t n = read(fd, reply + got, 5 - got);
                if (n <= 0) break;
                got += static_cast<size_t>(n);
            }
            SSL_CTX *cctx = SSL_CTX_new(TLS_client_method());
            SSL *ssl = SSL_new(cctx);
            SSL_set_fd(ssl, fd);
            if (SSL_connect(ssl) == 1) SSL_write(ssl, "HELLO\r\n", 7);
            SSL_shutdown(ssl);
            SSL_free(ssl);
            SSL_CTX_free(cctx);
        }
        close(fd);
    });
    const int fd = l.accept_one();
    protstream *in = prot_new(fd, 0), *out = prot_new(fd, 1);
    prot_settimeout(in, 30);
    char line[32];
    EXPECT_STREQ(prot_fgets(line, sizeof line, in), "STLS\r\n");
    prot_printf(out, "+OK\r\n");
    const int rc = prot_starttls(in, out, ctx, nullptr);
    EXPECT_EQ(rc, 0);
    EXPECT_STREQ(rc == 0 ? prot_fgets(line, sizeof line, in) : "", "HELLO\r\n");
    client.join();
    prot_free(in);
    prot_free(out);
    close(fd);
}

TEST(ProtTls, HandshakeIsBoundedByTheTimeOut) {
    ServerTls tls;
    prot_tls_ctx *ctx = tls.ctx;
    ASSERT_NE(ctx, nullptr);
    Listener l;
    const int peer = connect_loopback(l.port);  // connects and never speaks
    ASSERT_GE(peer, 0);
    const int fd = l.accept_one();
    protstream *in = prot_new(fd, 0), *out = prot_new(fd, 1);
    prot_settimeout(in, 1);
    const char *err = nullptr;
    EXPECT_EQ(prot_starttls(in, out, ctx, &err), -1);
    EXPECT_STREQ(err, "TLS handshake timed out");
    prot_free(in);
    prot_free(out);
    close(fd);
    close(peer);
}

}  // namespace
