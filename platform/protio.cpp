// Reading protocol streams and the server side of TLS over OpenSSL.
#include "orvutil/platform/protio.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "orvutil/platform/zolog.h"
#include "protio_internal.hpp"

struct prot_tls_ctx {
    SSL_CTX *ctx;
};

namespace {

using Clock = std::chrono::steady_clock;

// One TLS session shared by the reading and the output stream of a pair.
struct TlsLayer {
    SSL *ssl;
    std::atomic<int> refs;
};

TlsLayer *layer(const protstream *s) { return static_cast<TlsLayer *>(s->tls); }

// A deadline of "never" is Clock::time_point::max().
Clock::time_point deadline_after(int seconds) {
    return seconds > 0 ? Clock::now() + std::chrono::seconds(seconds) : Clock::time_point::max();
}

// Waits until fd is ready for events or the deadline passes: 1 ready, 0
// timed out, -1 error.
int wait_fd(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        int ms = -1;
        if (deadline != Clock::time_point::max()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) return 0;
            ms = left > 60000 ? 60000 : static_cast<int>(left);
        }
        pollfd p{fd, events, 0};
        const int r = poll(&p, 1, ms);
        if (r > 0) return 1;
        if (r < 0 && errno != EINTR) return -1;
    }
}

// Drives one OpenSSL call that may want to read or write until it is done:
// its positive result, 0 at a clean end, -1 on error, -2 on time-out.
template <typename Op>
int tls_io(SSL *ssl, int fd, Clock::time_point deadline, Op op) {
    for (;;) {
        ERR_clear_error();
        const int r = op();
        if (r > 0) return r;
        const int e = SSL_get_error(ssl, r);
        short events = 0;
        if (e == SSL_ERROR_WANT_READ)
            events = POLLIN;
        else if (e == SSL_ERROR_WANT_WRITE)
            events = POLLOUT;
        else if (e == SSL_ERROR_ZERO_RETURN)
            return 0;
        else
            return -1;
        const int w = wait_fd(fd, events, deadline);
        if (w == 0) return -2;
        if (w < 0) return -1;
    }
}

// Refills the empty buffer of a reading stream: true when bytes came.
bool fill(protstream *s) {
    if (s->error || s->eof) return false;
    const Clock::time_point deadline = deadline_after(s->timeout);
    int n;
    if (TlsLayer *t = layer(s)) {
        n = tls_io(t->ssl, s->fd, deadline, [&] { return SSL_read(t->ssl, s->buf, s->bufsize); });
    } else {
        for (;;) {
            const int w = wait_fd(s->fd, POLLIN, deadline);
            if (w <= 0) {
                n = w == 0 ? -2 : -1;
                break;
            }
            const ssize_t r = ::read(s->fd, s->buf, static_cast<size_t>(s->bufsize));
            if (r < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            n = r < 0 ? -1 : static_cast<int>(r);
            break;
        }
    }
    if (n > 0) {
        s->ptr = s->buf;
        s->cnt = n;
        return true;
    }
    if (n == 0)
        s->eof = 1;
    else
        s->error = n == -2 ? PROT_ERR_TIMEOUT : PROT_ERR_IO;
    return false;
}

bool reading(const protstream *s) { return s != nullptr && !s->write && s->fd >= 0; }

std::string tls_errors() {
    std::string text;
    char line[256];
    while (const unsigned long e = ERR_get_error()) {
        ERR_error_string_n(e, line, sizeof line);
        if (!text.empty()) text += "; ";
        text += line;
    }
    return text.empty() ? "no detail" : text;
}

char *name_text(X509_NAME *name) {
    BIO *bio = BIO_new(BIO_s_mem());
    if (bio == nullptr) return nullptr;
    char *text = nullptr;
    if (X509_NAME_print_ex(bio, name, 0, XN_FLAG_RFC2253) >= 0) {
        char *data = nullptr;
        const long len = BIO_get_mem_data(bio, &data);
        text = static_cast<char *>(std::malloc(static_cast<size_t>(len) + 1));
        if (text != nullptr) {
            std::memcpy(text, data, static_cast<size_t>(len));
            text[len] = '\0';
        }
    }
    BIO_free(bio);
    return text;
}

}  // namespace

namespace orv {

void prot_make_reader(protstream *s) {
    s->write = 0;
    s->cnt = 0;
}

ssize_t prot_tls_write(protstream *s, const void *buf, size_t n) {
    TlsLayer *t = layer(s);
    const Clock::time_point deadline = deadline_after(s->timeout);
    const auto *p = static_cast<const unsigned char *>(buf);
    size_t done = 0;
    while (done < n) {
        const int r = tls_io(t->ssl, s->fd, deadline, [&] {
            const size_t chunk = n - done > 1u << 30 ? 1u << 30 : n - done;
            return SSL_write(t->ssl, p + done, static_cast<int>(chunk));
        });
        if (r <= 0) return -1;
        done += static_cast<size_t>(r);
    }
    return static_cast<ssize_t>(n);
}

void prot_tls_release(protstream *s) {
    TlsLayer *t = layer(s);
    if (t == nullptr) return;
    s->tls = nullptr;
    if (t->refs.fetch_sub(1) == 1) {
        SSL_free(t->ssl);
        delete t;
    }
}

}  // namespace orv

extern "C" {

int prot_settimeout(protstream *s, int seconds) noexcept {
    if (s == nullptr || seconds < 0) return -1;
    s->timeout = seconds;
    return 0;
}

int prot_getc(protstream *s) noexcept {
    if (!reading(s)) return EOF;
    if (s->cnt == 0 && !fill(s)) return EOF;
    --s->cnt;
    return *s->ptr++;
}

int prot_ungetc(int c, protstream *s) noexcept {
    if (!reading(s) || c == EOF || s->ptr == s->buf) return EOF;
    *--s->ptr = static_cast<unsigned char>(c);
    ++s->cnt;
    return c;
}

char *prot_fgets(char *buf, int size, protstream *s) noexcept {
    if (buf == nullptr || size < 2 || !reading(s)) return nullptr;
    int len = 0;
    while (len < size - 1) {
        if (s->cnt == 0 && !fill(s)) break;
        const int want = size - 1 - len < s->cnt ? size - 1 - len : s->cnt;
        const void *nl = std::memchr(s->ptr, '\n', static_cast<size_t>(want));
        const int take = nl != nullptr ? static_cast<int>(static_cast<const unsigned char *>(nl) - s->ptr) + 1 : want;
        std::memcpy(buf + len, s->ptr, static_cast<size_t>(take));
        s->ptr += take;
        s->cnt -= take;
        len += take;
        if (nl != nullptr) break;
    }
    if (len == 0) return nullptr;
    buf[len] = '\0';
    return buf;
}

int prot_read(protstream *s, char *buf, int size) noexcept {
    if (buf == nullptr || size <= 0 || !reading(s)) return 0;
    if (s->cnt == 0 && !fill(s)) return 0;
    const int n = size < s->cnt ? size : s->cnt;
    std::memcpy(buf, s->ptr, static_cast<size_t>(n));
    s->ptr += n;
    s->cnt -= n;
    return n;
}

prot_tls_ctx *prot_tls_ctx_new(config_cache *cache, const char *prefix, const char **err) noexcept {
    const char *dummy;
    if (err == nullptr) err = &dummy;
    if (cache == nullptr) cache = config_getdefaultcache();
    const std::string pre = prefix != nullptr ? prefix : "tls.";
    auto key = [&](const char *name) { return pre + name; };
    const std::string cert = config_get_string(cache, key("certfile").c_str(), "");
    std::string keyfile = config_get_string(cache, key("keyfile").c_str(), "");
    const std::string ca = config_get_string(cache, key("cafile").c_str(), "");
    const bool verify = config_get_switch(cache, key("verifyclient").c_str(), 0) != 0;
    const std::string minv = config_get_string(cache, key("minversion").c_str(), "1.2");
    if (keyfile.empty()) keyfile = cert;
    int version;
    if (minv == "1.2") {
        version = TLS1_2_VERSION;
    } else if (minv == "1.3") {
        version = TLS1_3_VERSION;
    } else {
        zolog(0, 3, "TLS: %sminversion must be 1.2 or 1.3, not \"%s\"", pre.c_str(), minv.c_str());
        *err = "TLS minimum version must be 1.2 or 1.3";
        return nullptr;
    }
    if (cert.empty() || (verify && ca.empty())) {
        zolog(0, 3, "TLS: %scertfile%s not set", pre.c_str(), verify ? " or cafile" : "");
        *err = "TLS certificate not configured";
        return nullptr;
    }
    SSL_CTX *ctx = SSL_CTX_new(TLS_server_method());
    if (ctx == nullptr) {
        *err = "Out of memory";
        return nullptr;
    }
    bool ok = SSL_CTX_set_min_proto_version(ctx, version) == 1 &&
              SSL_CTX_use_certificate_chain_file(ctx, cert.c_str()) == 1 &&
              SSL_CTX_use_PrivateKey_file(ctx, keyfile.c_str(), SSL_FILETYPE_PEM) == 1 &&
              SSL_CTX_check_private_key(ctx) == 1;
    if (ok && !ca.empty()) {
        ok = SSL_CTX_load_verify_locations(ctx, ca.c_str(), nullptr) == 1;
        if (ok) {
            if (STACK_OF(X509_NAME) *names = SSL_load_client_CA_file(ca.c_str()))
                SSL_CTX_set_client_CA_list(ctx, names);
        }
    }
    if (!ok) {
        zolog(0, 3, "TLS: cannot load %s / %s / %s: %s", cert.c_str(), keyfile.c_str(), ca.c_str(),
              tls_errors().c_str());
        SSL_CTX_free(ctx);
        *err = "TLS certificate or key cannot be loaded";
        return nullptr;
    }
    if (verify) SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, nullptr);
    // Sessions are never resumed: no cache, and no tickets written after the
    // handshake to a client that may already have gone.
    SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(ctx, 0);
    // OpenSSL writes with write(2): a client that hangs up must not kill
    // the server with SIGPIPE.
    struct sigaction old {};
    if (sigaction(SIGPIPE, nullptr, &old) == 0 && old.sa_handler == SIG_DFL) std::signal(SIGPIPE, SIG_IGN);
    auto *c = new (std::nothrow) prot_tls_ctx{ctx};
    if (c == nullptr) {
        SSL_CTX_free(ctx);
        *err = "Out of memory";
    }
    return c;
}

void prot_tls_ctx_free(prot_tls_ctx *ctx) noexcept {
    if (ctx == nullptr) return;
    SSL_CTX_free(ctx->ctx);
    delete ctx;
}

int prot_starttls(protstream *in, protstream *out, prot_tls_ctx *ctx, const char **err) noexcept {
    const char *dummy;
    if (err == nullptr) err = &dummy;
    if (!reading(in) || out == nullptr || !out->write || out->fd != in->fd || ctx == nullptr) {
        *err = "Invalid stream pair";
        return -1;
    }
    if (in->tls != nullptr || out->tls != nullptr) {
        *err = "TLS already active";
        return -1;
    }
    auto fail = [&](const char *text) {
        in->error = PROT_ERR_IO;
        out->error = 1;
        *err = text;
        return -1;
    };
    if (prot_flush(out) != 0) return fail("Write failed");
    in->ptr = in->buf;
    in->cnt = 0;
    const int flags = fcntl(in->fd, F_GETFL);
    if (flags < 0 || fcntl(in->fd, F_SETFL, flags | O_NONBLOCK) < 0) return fail("Invalid descriptor");
    SSL *ssl = SSL_new(ctx->ctx);
    if (ssl == nullptr) return fail("Out of memory");
    SSL_set_fd(ssl, in->fd);
    const int r = tls_io(ssl, in->fd, deadline_after(in->timeout), [&] { return SSL_accept(ssl); });
    if (r <= 0) {
        zolog(0, 4, "TLS handshake failed: %s", r == -2 ? "time-out" : tls_errors().c_str());
        SSL_free(ssl);
        return fail(r == -2 ? "TLS handshake timed out" : "TLS handshake failed");
    }
    auto *t = new (std::nothrow) TlsLayer{ssl, 2};
    if (t == nullptr) {
        SSL_free(ssl);
        return fail("Out of memory");
    }
    in->tls = t;
    out->tls = t;
    return 0;
}

int prot_ssl_get_info(protstream *s, int *strength, prot_ssl_info **info) noexcept {
    if (s == nullptr || strength == nullptr) return -1;
    if (info != nullptr) *info = nullptr;
    TlsLayer *t = layer(s);
    if (t == nullptr) {
        *strength = 0;
        return 0;
    }
    *strength = SSL_get_cipher_bits(t->ssl, nullptr);
    if (info == nullptr) return 0;
    auto *i = static_cast<prot_ssl_info *>(std::calloc(1, sizeof(prot_ssl_info)));
    if (i == nullptr) return 0;
    i->bits = *strength;
    i->cipher = SSL_get_cipher_name(t->ssl);
    i->protocol = SSL_get_version(t->ssl);
    X509 *cert = SSL_get1_peer_certificate(t->ssl);
    if (cert != nullptr && SSL_get_verify_result(t->ssl) == X509_V_OK) {
        i->cert = cert;
        i->subject = name_text(X509_get_subject_name(cert));
        i->issuer = name_text(X509_get_issuer_name(cert));
    } else {
        X509_free(cert);
    }
    *info = i;
    return 0;
}

void prot_ssl_free_info(prot_ssl_info *info) noexcept {
    if (info == nullptr) return;
    X509_free(static_cast<X509 *>(info->cert));
    std::free(info->subject);
    std::free(info->issuer);
    std::free(info);
}

}  // extern "C"
