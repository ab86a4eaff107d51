// The web encodings: every encoder's output decodes back to the input, and
// no decoder misbehaves on arbitrary text.
#include <orvutil/url_encode_decode.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

struct Freed {
    char *p;
    explicit Freed(char *q) : p(q) {}
    ~Freed() { free(p); }
    Freed(const Freed &) = delete;
    Freed &operator=(const Freed &) = delete;
};

void check_round_trip(char *(*encode)(const char *), char *(*decode)(const char *), const std::string &text) {
    Freed encoded(encode(text.c_str()));
    if (!encoded.p) abort();
    Freed decoded(decode(encoded.p));
    if (!decoded.p || text != decoded.p) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The encodings work on C strings: cut at the first NUL.
    std::string text(reinterpret_cast<const char *>(data), size);
    text.resize(text.find('\0') == std::string::npos ? size : text.find('\0'));

    check_round_trip(url_Encode, url_Decode, text);
    check_round_trip(full_Encode, full_Decode, text);
    for (auto *f : {url_Decode, full_Decode, url_EncodeHTML, url_EncodeCookie, alpha_Encode}) free(f(text.c_str()));
    (void)xtoi(text.c_str());
    return 0;
}
