// The web encodings: every encoder's output decodes back to the input, and
// no decoder misbehaves on arbitrary text.
#include <orvutil/cal_parseutil.h>
#include <orvutil/url_encode_decode.h>

#include <cstring>

#include "fuzz_util.hpp"

namespace {

using fuzz::Freed;

void check_round_trip(char *(*encode)(const char *), char *(*decode)(const char *), const std::string &text) {
    Freed encoded(encode(text.c_str()));
    fuzz::check(encoded.p);
    Freed decoded(decode(encoded.p));
    fuzz::check(decoded.p && text == decoded.p);
}

// The in-place decoders of the argument family, with their encoders.
void check_in_place(const std::string &text) {
    Freed encoded(cal_parseutil_URLencode(text.c_str()));
    // Bytes below 0x10 encode with a blank ("% 9") that no decoder reads.
    bool blank = false;
    for (unsigned char c : text) blank |= c < 0x10;
    if (encoded.p && !blank) fuzz::check(text == cal_parseutil_unescape(encoded.p, 0));

    Freed js(cal_parseutil_JSencode(text.c_str()));
    fuzz::check(js.p && !strstr(js.p, "/s") && !strchr(js.p, '\n') && !strchr(js.p, '\r'));

    std::string scrambled(text.size(), '\0'), back(text.size(), '\0');
    char *out = scrambled.data(), *in = back.data();
    int n = static_cast<int>(text.size());
    cal_parseutil_dumbEnCrypt(text.c_str(), &out, n);
    cal_parseutil_dumbDeCrypt(scrambled.c_str(), &in, n);
    for (size_t i = 0; i < text.size(); i++) {
        unsigned char c = text[i];
        fuzz::check(back[i] == text[i] || (c >= 0x5E && c <= 0x60) || c >= 0xFD);
    }

    std::string copy = text;
    cal_parseutil_unescape(copy.data(), 1);
    copy = text;
    cal_parseutil_unescape_escaped_unicode(copy.data());
    copy = text;
    char *vector[8];
    int count = cal_parseutil_decode_url(copy.data(), 8, vector);
    fuzz::check(count >= 0 && count < 8 && vector[count] == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text = fuzz::text(data, size);
    check_round_trip(url_Encode, url_Decode, text);
    check_round_trip(full_Encode, full_Decode, text);
    for (auto *f : {url_Decode, full_Decode, url_EncodeHTML, url_EncodeCookie, alpha_Encode}) free(f(text.c_str()));
    (void)xtoi(text.c_str());
    check_in_place(text);
    return 0;
}
