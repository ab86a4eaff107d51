#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <tuple>

#include "orvutil/cal_parseutil.h"

namespace {

// A memory stream, freed at scope end.
struct Sink {
    explicit Sink(int bufsize = 0) : s(prot_new_memory(bufsize)) {}
    ~Sink() { prot_free(s); }
    std::string text() {
        size_t len = 0;
        const char *d = prot_memory_data(s, &len);
        return std::string(d, len);
    }
    protstream *s;
};

TEST(Escape, CharacterWritersFollowTheTable) {
    // byte, then print_char, print_xml_char, print_char_ical_es, _no_es
    const std::tuple<char, const char *, const char *, const char *, const char *> table[] = {
        {'\b', "\\b", "\\b", "\\b", "\\b"}, {'\n', "\\n", "&#10;", "\\n", "\\n"},
        {'\'', "\\'", "'", "'", "'"},       {',', ",", ",", "\\,", ","},
        {'>', ">", "&#62;", ">", ">"},      {'\\', "\\\\", "\\\\", "\\\\", "\\\\"},
        {'"', "\"", "\"", "\"", "\""},      {'\xE9', "\xE9", "\xE9", "\xE9", "\xE9"},
    };
    for (const auto &[in, print_char, xml_char, ical_es, ical_no_es] : table) {
        Sink a, b, e, n;
        int col_e = 0, col_n = 0;
        EXPECT_EQ(cal_parseutil_print_char(in, a.s), 0);
        EXPECT_EQ(cal_parseutil_print_xml_char(in, b.s), 0);
        EXPECT_EQ(cal_parseutil_print_char_ical_es(in, e.s, &col_e), 0);
        EXPECT_EQ(cal_parseutil_print_char_ical_no_es(in, n.s, &col_n), 0);
        EXPECT_EQ(a.text() + "|" + b.text() + "|" + e.text() + "|" + n.text(),
                  std::string(print_char) + "|" + xml_char + "|" + ical_es + "|" + ical_no_es);
        // An escaped character adds 1 to the column (the string writer adds
        // the other 1).
        EXPECT_EQ(col_e, e.text().size() > 1 ? 1 : 0) << int(in);
        EXPECT_EQ(col_n, n.text().size() > 1 ? 1 : 0) << int(in);
    }
}

TEST(Escape, NullArgumentsAndStoppedStreams) {
    Sink s;
    EXPECT_EQ(cal_parseutil_print_char_ical_es('a', s.s, nullptr), CAL_PARSEUTIL_E_NOSTREAM);
    EXPECT_EQ(cal_parseutil_print_string_xml(nullptr, "a"), CAL_PARSEUTIL_E_NOSTREAM);
    s.s->error = 1;  // a stopped stream takes nothing
    cal_parseutil_print_string_ical(s.s, "abc");
    cal_parseutil_print_string_xml(s.s, "<abc>");
    EXPECT_EQ(s.s->ptr, s.s->buf);
}

TEST(Escape, StringWriters) {
    // text, then print_string_ical, _no_esc_ical, and both XML writers
    const std::array<const char *, 4> cases[] = {
        {"a,b;c", "a\\,b\\;c", "a,b;c", "a,b;c"},
        {"a\\b", "a\\\\b", "a\\\\b", "a\\\\b"},
        {"<a&'b'>", "<a&'b'>", "<a&'b'>", "&#60;a&#38;'b'&#62;"},
        {"l1\r\nl2\x01", "l1\\r\\nl2\x01", "l1\\r\\nl2\x01", "l1&#13;&#10;l2\x01"},
        {"caf\xC3\xA9", "caf\xC3\xA9", "caf\xC3\xA9", "caf\xC3\xA9"},
    };
    for (const auto &c : cases) {
        Sink a, b, x, y;
        cal_parseutil_print_string_ical(a.s, c[0]);
        cal_parseutil_print_string_no_esc_ical(b.s, c[0]);
        cal_parseutil_print_string_xml(x.s, c[0]);
        cal_parseutil_print_string_xml_no_esc(y.s, c[0]);  // the flag is ignored
        EXPECT_EQ(a.text() + "|" + b.text() + "|" + x.text() + "|" + y.text(),
                  std::string(c[1]) + "|" + c[2] + "|" + c[3] + "|" + c[3]);
    }
}

// The folding rule written out byte by byte: the reference for the
// writer's bulk path.
std::string model_ical(const std::string &in, int col, bool escape) {
    std::string out;
    for (unsigned char c : in) {
        if (c < 0x80) {
            if (col > 73) {
                out += "\n ";
                col = 1;
            }
            const std::string forms = escape ? "\b\n\f\r\\,;" : "\b\n\f\r\\";
            if (forms.find(static_cast<char>(c)) != std::string::npos) {
                out += '\\';
                out += std::string("bnfr\\,;")[forms.find(static_cast<char>(c))];
                ++col;
                ++col;
                continue;
            }
        }
        out += static_cast<char>(c);
        ++col;
    }
    return out;
}

TEST(Escape, FoldingByColumn) {
    // bytes already in the buffer, text, what the text becomes
    const std::array<std::string, 3> cases[] = {
        // Fold before the 75th character, then every 74 (the counter restarts at 1).
        {"", std::string(200, 'x'), std::string(74, 'x') + "\n " + std::string(73, 'x') + "\n " + std::string(53, 'x')},
        // The column starts behind the last LF still in the buffer.
        {"BEGIN\nDESCRIPTION:", std::string(70, 'y'), std::string(62, 'y') + "\n " + std::string(8, 'y')},
    };
    for (const auto &[head, text, expect] : cases) {
        Sink s;
        prot_write(s.s, head.data(), head.size());
        cal_parseutil_print_string_ical(s.s, text.c_str());
        EXPECT_EQ(s.text(), head + expect);
    }
    // The single-character writer finds the column in the buffer each time.
    Sink t;
    prot_write(t.s, std::string(74, 'h').data(), 74);
    cal_parseutil_print_char_ical(t.s, ',');
    cal_parseutil_print_char_ical(t.s, ',');
    EXPECT_EQ(t.text(), std::string(74, 'h') + "\n ,,");
}

TEST(Escape, BulkPathMatchesTheByteRuleForRandomTexts) {
    std::mt19937 rng(4);
    std::string alphabet = "aaaaaaaa,;\\\n\r\b\f";  // every byte value, the escaped ones more often
    for (int b = 1; b < 256; ++b) alphabet += static_cast<char>(b);
    for (int round = 0; round < 300; ++round) {
        std::string text(rng() % 400, ' ');
        for (auto &c : text) c = alphabet[rng() % alphabet.size()];
        const std::string head = "X:" + std::string(rng() % 90, 'p');
        for (int bufsize : {1, 5, 64, 0}) {
            for (int escape : {0, 1}) {
                Sink s(bufsize);
                prot_write(s.s, head.data(), head.size());
                const int col = static_cast<int>(s.s->ptr - s.s->buf);  // what is left in the buffer
                cal_parseutil_print_string_ical_es(s.s, text.c_str(), escape);
                ASSERT_EQ(s.text(), head + model_ical(text, col, escape)) << round << " " << bufsize;
            }
        }
    }
}

TEST(Escape, Converters) {
    // source, compress, convert_to_xml_string, convert_to_xml_string_always
    const std::tuple<const char *, int, const char *, const char *> cases[] = {
        {"x\r\ny", 1, "x&#10;y", "x&#10;y"},
        {"x\r\ny", 0, "x&#10;&#10;y", "x&#10;&#10;y"},
        {"a/b\"", 0, "a/b\"", "a&#47;b&#34;"},
        {"<&'>", 0, "<&'>", "&#60;&#38;&#39;&#62;"},
        {"\r\r\n", 1, "&#10;&#10;", "&#10;&#10;"},  // a lone CR becomes a line feed
        {"", 0, "", ""},
    };
    for (const auto &[in, compress, lf_only, full] : cases) {
        char *a = nullptr;
        char *b = static_cast<char *>(std::malloc(8));  // freed by the converter
        EXPECT_EQ(cal_parseutil_convert_to_xml_string(in, &a, compress), 0);
        EXPECT_EQ(cal_parseutil_convert_to_xml_string_always(in, &b, compress), 0);
        EXPECT_STREQ(a, lf_only);
        EXPECT_STREQ(b, full);
        std::free(a);
        std::free(b);
    }
    // A CR LF pair split across two 16-byte blocks.
    const std::string a(16, 'a'), b(12, 'b'), c(20, 'c');
    char *out = nullptr;
    ASSERT_EQ(cal_parseutil_convert_to_xml_string_always((a + "<\r\n" + b + "\r\n&" + c).c_str(), &out, 1), 0);
    EXPECT_EQ(out, a + "&#60;&#10;" + b + "&#10;&#38;" + c);
    std::free(out);
    out = nullptr;  // the converter frees what *out holds
    // Worst case: every byte of a mebibyte becomes an entity.
    ASSERT_EQ(cal_parseutil_convert_to_xml_string_always(std::string(1 << 20, '&').c_str(), &out, 0), 0);
    EXPECT_EQ(std::strlen(out), 5u << 20);
    EXPECT_EQ(std::string(out + (5u << 20) - 10), "&#38;&#38;");
    std::free(out);
}

TEST(Escape, InPlaceCleaners) {
    // text, after compressNewLines, after ValidateXMLData
    const std::array<std::string, 3> cases[] = {
        {"a\r\nb\r\n", "a\nb\n", "a\r\nb\r\n"},
        {"\r\r\n\n", "\r\n\n", "\r\r\n\n"},
        {"a\x01"
         "b\tc",
         "a\x01"
         "b\tc",
         "a b\tc"},
        {"\x1f\x7f\x80\x0b", "\x1f\x7f\x80\x0b", " \x7f\x80 "},
    };
    for (const auto &[in, compressed, validated] : cases) {
        std::string a = in, b = in;
        compressNewLines(a.data());
        cal_parseutil_ValidateXMLData(b.data());
        EXPECT_EQ(std::string(a.c_str()), compressed);
        EXPECT_EQ(b, validated);
    }
    compressNewLines(nullptr);
    cal_parseutil_ValidateXMLData(nullptr);
}

}  // namespace
