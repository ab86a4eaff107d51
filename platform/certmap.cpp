// Client certificates to directory entries, by per-issuer rules.
#include "orvutil/platform/certmap.h"

#include <lber.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ldap_internal.hpp"
#include "orv/ascii.hpp"
#include "orvutil/platform/zolog.h"

namespace {

struct Rule {
    std::string issuer;  // normalised; "" for the default rule
    std::vector<std::string> base;
    std::vector<std::string> filter;
    std::string subjectattr;
    bool compare = false;
};

std::optional<LDAPUVTable_t> vtable;
std::unique_ptr<std::vector<Rule>> rules;

constexpr const char *kComponents[] = {"cn", "uid", "mail", "ou", "o", "dc", "l", "st", "c"};

bool known_component(const std::string &name) {
    for (const char *c : kComponents)
        if (name == c) return true;
    return false;
}

// Lower case, no blanks around ',' '=' '+' or at the ends: two spellings of
// one DN compare equal.
std::string normalise_dn(std::string_view dn) {
    std::string out;
    for (size_t i = 0; i < dn.size(); ++i) {
        const auto c = static_cast<unsigned char>(dn[i]);
        if (orv::ascii_isblank(c)) {
            size_t j = i;
            while (j < dn.size() && orv::ascii_isblank(static_cast<unsigned char>(dn[j]))) ++j;
            const bool edge = out.empty() || j == dn.size() || std::strchr(",=+", out.back()) != nullptr ||
                              std::strchr(",=+", dn[j]) != nullptr;
            if (!edge) out += ' ';
            i = j - 1;
        } else {
            out += static_cast<char>(orv::ascii_tolower(c));
        }
    }
    return out;
}

std::vector<std::string> words(const std::string &line) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && orv::ascii_isspace(static_cast<unsigned char>(line[i]))) ++i;
        size_t j = i;
        while (j < line.size() && !orv::ascii_isspace(static_cast<unsigned char>(line[j]))) ++j;
        if (j > i) out.push_back(line.substr(i, j - i));
        i = j;
    }
    return out;
}

// Parses the map file; an empty text on success, else "file:line: why".
std::string parse(const char *path, std::vector<Rule> &out) {
    std::ifstream in(path);
    if (!in) return "";
    std::string line;
    int number = 0, rule_line = 0;
    auto at = [&](int n, const std::string &why) { return std::string(path) + ":" + std::to_string(n) + ": " + why; };
    auto fail = [&](const std::string &why) { return at(number, why); };
    auto finish = [&]() -> std::string {
        if (!out.empty() && out.back().filter.empty() && out.back().subjectattr.empty())
            return at(rule_line, "the rule needs filter or subjectattr");
        return "";
    };
    while (std::getline(in, line)) {
        ++number;
        std::vector<std::string> w = words(line);
        if (w.empty() || w[0][0] == '#') continue;
        const std::string key = w[0];
        if (key == "issuer") {
            if (std::string e = finish(); !e.empty()) return e;
            if (w.size() < 2) return fail("issuer needs a DN or default");
            const size_t at = line.find("issuer") + 6;
            std::string issuer = normalise_dn(line.substr(at));
            if (issuer == "default") issuer.clear();
            for (const Rule &r : out)
                if (r.issuer == issuer) return fail("a second rule for the same issuer");
            out.emplace_back();
            out.back().issuer = issuer;
            rule_line = number;
            continue;
        }
        if (out.empty()) return fail("\"" + key + "\" before any issuer line");
        Rule &r = out.back();
        if (key == "base" || key == "filter") {
            std::vector<std::string> &list = key == "base" ? r.base : r.filter;
            for (size_t i = 1; i < w.size(); ++i) {
                std::string c = w[i];
                for (char &ch : c) ch = static_cast<char>(orv::ascii_tolower(static_cast<unsigned char>(ch)));
                if (!known_component(c)) return fail("unknown component \"" + w[i] + "\"");
                list.push_back(c);
            }
        } else if (key == "subjectattr" && w.size() == 2) {
            r.subjectattr = w[1];
        } else if (key == "compare" && w.size() == 2 && (w[1] == "on" || w[1] == "off")) {
            r.compare = w[1] == "on";
        } else {
            return fail("cannot read \"" + line + "\"");
        }
    }
    return finish();
}

std::string name_rfc4514(X509_NAME *name) {
    std::string text;
    BIO *bio = BIO_new(BIO_s_mem());
    if (bio == nullptr) throw std::bad_alloc();
    if (X509_NAME_print_ex(bio, name, 0, XN_FLAG_RFC2253) >= 0) {
        char *data = nullptr;
        const long len = BIO_get_mem_data(bio, &data);
        text.assign(data, static_cast<size_t>(len));
    }
    BIO_free(bio);
    return text;
}

struct Component {
    std::string type;  // one of kComponents
    std::string value;
};

// The subject's components, most significant last (the RFC 4514 order).
std::vector<Component> components(X509_NAME *name) {
    std::vector<Component> out;
    for (int i = X509_NAME_entry_count(name) - 1; i >= 0; --i) {
        X509_NAME_ENTRY *e = X509_NAME_get_entry(name, i);
        const int nid = OBJ_obj2nid(X509_NAME_ENTRY_get_object(e));
        std::string type = nid == NID_pkcs9_emailAddress ? "mail" : nid == NID_undef ? "" : OBJ_nid2sn(nid);
        for (char &c : type) c = static_cast<char>(orv::ascii_tolower(static_cast<unsigned char>(c)));
        unsigned char *utf8 = nullptr;
        const int len = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(e));
        if (len < 0) continue;
        out.push_back(Component{type, std::string(reinterpret_cast<char *>(utf8), static_cast<size_t>(len))});
        OPENSSL_free(utf8);
    }
    return out;
}

// An attribute value escaped for a DN (RFC 4514).
std::string dn_escape(const std::string &v) {
    std::string out;
    for (size_t i = 0; i < v.size(); ++i) {
        const char c = v[i];
        if (std::strchr(",+\"\\<>;=", c) != nullptr || (i == 0 && (c == '#' || c == ' ')) ||
            (i + 1 == v.size() && c == ' '))
            out += '\\';
        out += c;
    }
    return out;
}

const Rule *rule_for(const std::string &issuer) {
    const Rule *fallback = nullptr;
    for (const Rule &r : *rules) {
        if (r.issuer == issuer) return &r;
        if (r.issuer.empty()) fallback = &r;
    }
    return fallback;
}

bool holds_certificate(ldap *ld, ldapmsg *entry, const std::string &der) {
    const LDAPUVTable_t &vt = *vtable;
    for (const char *attr : {"userCertificate;binary", "userCertificate"}) {
        berval **values = vt.ldapuV_get_values_len(ld, entry, attr);
        bool found = false;
        for (berval **v = values; v != nullptr && *v != nullptr && !found; ++v)
            found = (*v)->bv_len == der.size() && std::memcmp((*v)->bv_val, der.data(), der.size()) == 0;
        if (values != nullptr) vt.ldapuV_value_free_len(ld, values);
        if (found) return true;
    }
    return false;
}

int map(X509 *cert, ldap *ld, const char *basedn, ldapmsg **res, char **user) {
    const Rule *rule = rule_for(normalise_dn(name_rfc4514(X509_get_issuer_name(cert))));
    if (rule == nullptr) return LDAPU_FAILED;
    const std::vector<Component> subject = components(X509_get_subject_name(cert));
    std::string base;
    for (const Component &c : subject) {
        for (const std::string &want : rule->base)
            if (c.type == want) base += (base.empty() ? "" : ",") + c.type + "=" + dn_escape(c.value);
    }
    if (rule->base.empty()) base = basedn != nullptr ? basedn : "";
    if (base.empty()) return LDAPU_FAILED;
    std::string filter;
    for (const std::string &want : rule->filter) {
        bool found = false;
        for (const Component &c : subject) {
            if (c.type != want) continue;
            filter += "(" + c.type + "=" + orv::ldap_filter_escape(c.value) + ")";
            found = true;
        }
        if (!found) return LDAPU_FAILED;
    }
    if (!rule->subjectattr.empty())
        filter +=
            "(" + rule->subjectattr + "=" + orv::ldap_filter_escape(name_rfc4514(X509_get_subject_name(cert))) + ")";
    filter = "(&" + filter + ")";
    const LDAPUVTable_t &vt = *vtable;
    char star[] = "*", locked[] = "pwdAccountLockedTime", certattr[] = "userCertificate;binary";
    char *attrs[] = {star, locked, certattr, nullptr};
    ldapmsg *found = nullptr;
    const int rc = vt.ldapuV_search_s(ld, base.c_str(), 2 /* subtree */, filter.c_str(), attrs, 0, &found);
    if (rc == 32 /* no such object */) {
        if (found != nullptr) vt.ldapuV_msgfree(ld, found);
        return LDAPU_FAILED;
    }
    if (rc != 0) {
        if (found != nullptr) vt.ldapuV_msgfree(ld, found);
        zolog(0, 3, "certificate mapping: search under %s for %s failed (%d)", base.c_str(), filter.c_str(), rc);
        return LDAPU_ERR_DIRECTORY;
    }
    ldapmsg *match = nullptr;
    const int count = vt.ldapuV_count_entries(ld, found);
    if (count == 0) {
        vt.ldapuV_msgfree(ld, found);
        return LDAPU_FAILED;
    }
    if (rule->compare) {
        unsigned char *der = nullptr;
        const int len = i2d_X509(cert, &der);
        if (len < 0) {
            vt.ldapuV_msgfree(ld, found);
            return LDAPU_ERR_OUT_OF_MEMORY;
        }
        const std::string bytes(reinterpret_cast<char *>(der), static_cast<size_t>(len));
        OPENSSL_free(der);
        int matches = 0;
        for (ldapmsg *e = vt.ldapuV_first_entry(ld, found); e != nullptr; e = vt.ldapuV_next_entry(ld, e)) {
            if (holds_certificate(ld, e, bytes)) {
                if (match == nullptr) match = e;
                ++matches;
            }
        }
        if (matches != 1) {
            vt.ldapuV_msgfree(ld, found);
            return matches == 0 ? LDAPU_ERR_CERT_VERIFY_FAILED : LDAPU_ERR_MULTIPLE_MATCHES;
        }
    } else if (count > 1) {
        vt.ldapuV_msgfree(ld, found);
        return LDAPU_ERR_MULTIPLE_MATCHES;
    } else {
        match = vt.ldapuV_first_entry(ld, found);
    }
    char *dn = vt.ldapuV_get_dn(ld, match);
    if (dn == nullptr) {
        vt.ldapuV_msgfree(ld, found);
        return LDAPU_ERR_DIRECTORY;
    }
    if (match != vt.ldapuV_first_entry(ld, found)) {
        // Callers take the first entry: read the matching one alone.
        vt.ldapuV_msgfree(ld, found);
        found = nullptr;
        char any[] = "(objectClass=*)";
        if (vt.ldapuV_search_s(ld, dn, 0 /* base */, any, attrs, 0, &found) != 0 || found == nullptr) {
            if (found != nullptr) vt.ldapuV_msgfree(ld, found);
            vt.ldapuV_memfree(ld, dn);
            return LDAPU_ERR_DIRECTORY;
        }
    }
    int result = LDAPU_SUCCESS;
    if (user != nullptr && (*user = strdup(dn)) == nullptr) result = LDAPU_ERR_OUT_OF_MEMORY;
    vt.ldapuV_memfree(ld, dn);
    if (result != LDAPU_SUCCESS) {
        vt.ldapuV_msgfree(ld, found);
        return result;
    }
    *res = found;
    return LDAPU_SUCCESS;
}

}  // namespace

extern "C" {

int ldapu_VTable_set(const LDAPUVTable_t *vt) noexcept {
    if (vt == nullptr || !vt->ldapuV_search_s || !vt->ldapuV_count_entries || !vt->ldapuV_first_entry ||
        !vt->ldapuV_next_entry || !vt->ldapuV_msgfree || !vt->ldapuV_get_dn || !vt->ldapuV_memfree ||
        !vt->ldapuV_get_values || !vt->ldapuV_value_free || !vt->ldapuV_get_values_len || !vt->ldapuV_value_free_len)
        return LDAPU_ERR_NO_VTABLE;
    vtable = *vt;
    return LDAPU_SUCCESS;
}

int ldapu_certmap_init(const char *config_file, const char *libname) noexcept {
    ldaputil_exit();
    if (config_file == nullptr) return LDAPU_ERR_INVALID_ARGUMENT;
    const char *who = libname != nullptr ? libname : "certmap";
    try {
        if (!std::ifstream(config_file)) {
            zolog(0, 2, "%s: cannot open %s", who, config_file);
            return LDAPU_ERR_CANNOT_OPEN_FILE;
        }
        auto parsed = std::make_unique<std::vector<Rule>>();
        if (std::string error = parse(config_file, *parsed); !error.empty()) {
            zolog(0, 2, "%s: %s", who, error.c_str());
            return LDAPU_ERR_CERTMAP_SYNTAX;
        }
        rules = std::move(parsed);
        return LDAPU_SUCCESS;
    } catch (const std::bad_alloc &) {
        return LDAPU_ERR_OUT_OF_MEMORY;
    }
}

int ldapu_cert_to_user(const void *cert, ldap *ld, const char *basedn, ldapmsg **res, char **user) noexcept {
    if (user != nullptr) *user = nullptr;
    if (res == nullptr) return LDAPU_ERR_INVALID_ARGUMENT;
    *res = nullptr;
    if (!rules) return LDAPU_ERR_NOT_INITIALIZED;
    if (!vtable) return LDAPU_ERR_NO_VTABLE;
    if (cert == nullptr) return LDAPU_ERR_NO_CERT;
    try {
        return map(static_cast<X509 *>(const_cast<void *>(cert)), ld, basedn, res, user);
    } catch (const std::bad_alloc &) {
        return LDAPU_ERR_OUT_OF_MEMORY;
    }
}

void ldapu_free(void *p) noexcept { std::free(p); }

const char *ldapu_err2string(int err) noexcept {
    switch (err) {
        case LDAPU_SUCCESS: return "Success";
        case LDAPU_FAILED: return "No directory entry matches the certificate";
        case LDAPU_ERR_OUT_OF_MEMORY: return "Out of memory";
        case LDAPU_ERR_CANNOT_OPEN_FILE: return "Cannot open the certificate map file";
        case LDAPU_ERR_CERTMAP_SYNTAX: return "Syntax error in the certificate map file";
        case LDAPU_ERR_NOT_INITIALIZED: return "Certificate mapping not initialized";
        case LDAPU_ERR_NO_VTABLE: return "No directory operations installed for certificate mapping";
        case LDAPU_ERR_NO_CERT: return "No client certificate";
        case LDAPU_ERR_MULTIPLE_MATCHES: return "More than one directory entry matches the certificate";
        case LDAPU_ERR_CERT_VERIFY_FAILED: return "The certificate does not match the directory entry's";
        case LDAPU_ERR_DIRECTORY: return "Directory search failed";
        case LDAPU_ERR_INVALID_ARGUMENT: return "Invalid argument";
        default: return "Unknown certificate mapping error";
    }
}

void ldaputil_exit(void) noexcept { rules.reset(); }

}  // extern "C"
