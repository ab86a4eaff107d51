// The iCalendar and XML writers over a memory stream, and the growable
// memory buffer. Unfolding and unescaping what a writer wrote gives its input
// back; while the stream's buffer holds the whole output no iCalendar line
// of ASCII text grows past 75 bytes. The first byte picks the stream's buffer
// size (even: large, odd: one that flushes often) and the buffer's chunk
// size.
#include <orvutil/cal_parseutil.h>
#include <orvutil/cal_strm.h>
#include <orvutil/platform/prot.h>

#include <cstring>

#include "fuzz_util.hpp"

namespace {

// Reference reader: drops folds (a raw LF and the space behind it) and
// replaces every escape form by its byte: a backslash and the letter of one
// of the controls named, or the byte itself among those listed in escaped;
// with entities, "&#N;". Any other byte stands for itself.
std::string model_read(const std::string &out, const char *escaped, bool folds, bool entities) {
    std::string in;
    for (size_t i = 0; i < out.size(); i++) {
        char c = out[i];
        if (folds && c == '\n') {
            fuzz::check(i + 1 < out.size() && out[++i] == ' ');
            continue;
        }
        if (c == '\\' && i + 1 < out.size()) {
            char e = out[i + 1];
            static const char letters[] = "bfnr", controls[] = "\b\f\n\r";
            const char *letter = strchr(letters, e);
            if (e && letter)
                c = controls[letter - letters];
            else if (e && strchr(escaped, e))
                c = e;
            else
                fuzz::check(false);
            fuzz::check(entities ? c != '\n' && c != '\r' : true);
            i++;
        } else if (c == '&' && entities) {
            size_t end = out.find(';', i);
            fuzz::check(end != std::string::npos && out[i + 1] == '#');
            c = static_cast<char>(atoi(out.c_str() + i + 2));
            fuzz::check(strchr("\n\r&<>", c) && c);
            i = end;
        }
        in += c;
    }
    return in;
}

void check_lines(const std::string &out) {
    size_t from = 0, at;
    while ((at = out.find('\n', from)) != std::string::npos) {
        fuzz::check(at - from <= 75);
        from = at + 1;
    }
    fuzz::check(out.size() - from <= 75);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    std::string text = fuzz::text(data + 1, size - 1);
    bool ascii = true;
    for (unsigned char c : text) ascii &= c < 0x80;
    const int bufsize = (data[0] & 1) == 0 ? 8192 : 1 + data[0] % 64;
    protstream *s = prot_new_memory(bufsize);
    fuzz::check(s);
    for (bool ical : {true, false})
        for (int escape : {0, 1}) {
            prot_memory_clear(s);
            auto *write = ical ? cal_parseutil_print_string_ical_es : cal_parseutil_print_string_xml_es;
            write(s, text.c_str(), escape);
            write(s, text.c_str(), escape);  // the second starts mid-line
            size_t len = 0;
            const char *p = prot_memory_data(s, &len);
            std::string out(p, len);
            const char *escaped = ical && escape ? "\\,;" : "\\";
            fuzz::check(model_read(out, escaped, ical, !ical) == text + text);
            if (ical && ascii && out.size() < static_cast<size_t>(bufsize)) check_lines(out);
        }
    prot_free(s);

    calstrm *m = calstrm_new(data[0] & 2 ? 1 : 0);
    calstrm_set_chunksize(m, 1 + data[0]);
    calstrm_write(m, text.data(), static_cast<unsigned>(text.size()));
    calstrm_putc(m, '|');
    calstrm_printf(m, "%s%d%lx", text.c_str(), -7, 255ul);
    std::string want = text + "|" + text + "-7ff";
    fuzz::check(calstrm_getlength(m) == want.size() && memcmp(calstrm_getbuffer(m), want.data(), want.size()) == 0);
    calstrm_delete(m);

    char *xml = nullptr;
    fuzz::check(cal_parseutil_convert_to_xml_string_always(text.c_str(), &xml, data[0] & 4) == 0);
    fuzz::check(!strchr(xml, '\n') && !strchr(xml, '\r') && !strchr(xml, '<'));
    free(xml);
    return 0;
}
