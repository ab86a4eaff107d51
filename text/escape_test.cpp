#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

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

struct CharCase {
    char in;
    const char *print_char, *xml_char, *ical_es, *ical_no_es;
};

const CharCase kCharTable[] = {
    {'\b', "\\b", "\\b", "\\b", "\\b"},        {'\n', "\\n", "&#10;", "\\n", "\\n"},
    {'\f', "\\f", "\\f", "\\f", "\\f"},        {'\r', "\\r", "&#13;", "\\r", "\\r"},
    {'\'', "\\'", "'", "'", "'"},              {',', ",", ",", "\\,", ","},
    {';', ";", ";", "\\;", ";"},               {'&', "&", "&#38;", "&", "&"},
    {'<', "<", "&#60;", "<", "<"},             {'>', ">", "&#62;", ">", ">"},
    {'\\', "\\\\", "\\\\", "\\\\", "\\\\"},    {'"', "\"", "\"", "\"", "\""},
    {'a', "a", "a", "a", "a"},                 {'\xE9', "\xE9", "\xE9", "\xE9", "\xE9"},
    {'\t', "\t", "\t", "\t", "\t"},
};

TEST(Escape, CharacterWritersFollowTheTable) {
    for (const auto &c : kCharTable) {
        Sink a, b, e, n;
        int col_e = 0, col_n = 0;
        EXPECT_EQ(cal_parseutil_print_char(c.in, a.s), 0);
        EXPECT_EQ(cal_parseutil_print_xml_char(c.in, b.s), 0);
        EXPECT_EQ(cal_parseutil_print_char_ical_es(c.in, e.s, &col_e), 0);
        EXPECT_EQ(cal_parseutil_print_char_ical_no_es(c.in, n.s, &col_n), 0);
        EXPECT_EQ(a.text(), c.print_char) << int(c.in);
        EXPECT_EQ(b.text(), c.xml_char) << int(c.in);
        EXPECT_EQ(e.text(), c.ical_es) << int(c.in);
        EXPECT_EQ(n.text(), c.ical_no_es) << int(c.in);
        // An escaped character adds 1 to the column; the string writer adds
        // the other 1.
        EXPECT_EQ(col_e, std::string(c.ical_es).size() > 1 ? 1 : 0) << int(c.in);
        EXPECT_EQ(col_n, std::string(c.ical_no_es).size() > 1 ? 1 : 0) << int(c.in);
    }
}

TEST(Escape, NullStreamAndCounter) {
    int col = 0;
    EXPECT_EQ(cal_parseutil_print_char('a', nullptr), 1);
    EXPECT_EQ(cal_parseutil_print_xml_char('a', nullptr), 1);
    EXPECT_EQ(cal_parseutil_print_char_ical_es('a', nullptr, &col), 1);
    EXPECT_EQ(cal_parseutil_print_char_ical_no_es('a', nullptr, &col), 1);
    EXPECT_EQ(cal_parseutil_print_char_ical(nullptr, 'a'), 0);
    EXPECT_EQ(cal_parseutil_print_char_xml(nullptr, 'a'), 0);
    for (int flag : {0, 1}) {
        EXPECT_EQ(cal_parseutil_print_string_ical_es(nullptr, "a", flag), 1);
        EXPECT_EQ(cal_parseutil_print_string_xml_es(nullptr, "a", flag), 1);
    }
    EXPECT_EQ(cal_parseutil_print_string_ical(nullptr, "a"), 1);
    EXPECT_EQ(cal_parseutil_print_string_no_esc_ical(nullptr, "a"), 1);
    EXPECT_EQ(cal_parseutil_print_string_xml(nullptr, "a"), 1);
    EXPECT_EQ(cal_parseutil_print_string_xml_no_esc(nullptr, "a"), 1);
    Sink s;
    EXPECT_EQ(cal_parseutil_print_char_ical_es('a', s.s, nullptr), 1);
    EXPECT_EQ(cal_parseutil_print_string_ical(s.s, nullptr), 0);
    EXPECT_EQ(cal_parseutil_print_string_xml(s.s, nullptr), 0);
    EXPECT_EQ(s.text(), "");
}

TEST(Escape, StringWriters) {
    struct Case {
        const char *in;
        const char *ical, *ical_no_esc, *xml;
    };
    const Case cases[] = {
        {"a,b;c", "a\\,b\\;c", "a,b;c", "a,b;c"},
        {"a\\b", "a\\\\b", "a\\\\b", "a\\\\b"},
        {"<a&'b'>", "<a&'b'>", "<a&'b'>", "&#60;a&#38;'b'&#62;"},
        {"l1\r\nl2", "l1\\r\\nl2", "l1\\r\\nl2", "l1&#13;&#10;l2"},
        {"", "", "", ""},
        {"caf\xC3\xA9", "caf\xC3\xA9", "caf\xC3\xA9", "caf\xC3\xA9"},
    };
    for (const auto &c : cases) {
        Sink a, b, x, y;
        EXPECT_EQ(cal_parseutil_print_string_ical(a.s, c.in), 0);
        EXPECT_EQ(cal_parseutil_print_string_no_esc_ical(b.s, c.in), 0);
        EXPECT_EQ(cal_parseutil_print_string_xml(x.s, c.in), 0);
        EXPECT_EQ(cal_parseutil_print_string_xml_no_esc(y.s, c.in), 0);
        EXPECT_EQ(a.text(), c.ical) << c.in;
        EXPECT_EQ(b.text(), c.ical_no_esc) << c.in;
        EXPECT_EQ(x.text(), c.xml) << c.in;
        EXPECT_EQ(y.text(), c.xml) << c.in;  // the flag is ignored
    }
}

// The folding rule written out byte by byte, as the reference for the
// writer's bulk path.
std::string model_ical(const std::string &in, int col, bool escape) {
    std::string out;
    for (unsigned char c : in) {
        if (c >= 0x80) {
            out += static_cast<char>(c);
        } else {
            if (col > 73) {
                out += "\n ";
                col = 1;
            }
            std::string form(1, static_cast<char>(c));
            switch (c) {
            case '\b': form = "\\b"; break;
            case '\n': form = "\\n"; break;
            case '\f': form = "\\f"; break;
            case '\r': form = "\\r"; break;
            case '\\': form = "\\\\"; break;
            case ',': if (escape) form = "\\,"; break;
            case ';': if (escape) form = "\\;"; break;
            default: break;
            }
            out += form;
            if (form.size() > 1) ++col;
        }
        ++col;
    }
    return out;
}

TEST(Escape, FoldEvery74CountedCharacters) {
    Sink s;
    const std::string line(200, 'x');
    cal_parseutil_print_string_ical(s.s, line.c_str());
    // Fold before the 75th character, then every 74 (the counter restarts at 1).
    const std::string expect = std::string(74, 'x') + "\n " + std::string(73, 'x') + "\n " + std::string(53, 'x');
    EXPECT_EQ(s.text(), expect);
    EXPECT_EQ(s.text(), model_ical(line, 0, true));
}

TEST(Escape, ColumnStartsBehindTheLastLineFeedInTheBuffer) {
    Sink s;
    prot_write(s.s, "BEGIN\nDESCRIPTION:", 18);  // column 12
    const std::string text(100, 'y');
    cal_parseutil_print_string_ical(s.s, text.c_str());
    EXPECT_EQ(s.text(), "BEGIN\nDESCRIPTION:" + model_ical(text, 12, true));
    // Single-character writer: the column comes from the buffer each time.
    Sink t;
    const std::string head(74, 'h');
    prot_write(t.s, head.data(), head.size());
    cal_parseutil_print_char_ical(t.s, ',');
    cal_parseutil_print_char_ical(t.s, ',');
    EXPECT_EQ(t.text(), head + "\n ,,");
}

TEST(Escape, HighBytesNeverFoldButAreCounted) {
    Sink s;
    const std::string text = std::string(100, '\xE2') + "ab";
    cal_parseutil_print_string_ical(s.s, text.c_str());
    EXPECT_EQ(s.text(), std::string(100, '\xE2') + "\n ab");
}

TEST(Escape, BulkPathMatchesTheByteRuleForRandomTexts) {
    std::mt19937 rng(4);
    const std::string alphabet = "abc ,;\\\n\r\b\f'&<>\xC3\xA9\xE2\x82\xAC";
    for (int round = 0; round < 300; ++round) {
        std::string text(rng() % 400, ' ');
        for (auto &c : text) c = alphabet[rng() % alphabet.size()];
        const int prefix = static_cast<int>(rng() % 90);
        for (int bufsize : {1, 5, 64, 0}) {
            for (int escape : {0, 1}) {
                Sink s(bufsize);
                const std::string head = "X:" + std::string(static_cast<size_t>(prefix), 'p');
                prot_write(s.s, head.data(), head.size());
                // The start column is taken from what is still in the buffer.
                const int col = static_cast<int>(s.s->ptr - s.s->buf);
                cal_parseutil_print_string_ical_es(s.s, text.c_str(), escape);
                ASSERT_EQ(s.text(), head + model_ical(text, col, escape)) << round << " " << bufsize;
            }
        }
    }
}

TEST(Escape, StoppedStreamDropsTheRest) {
    Sink s;
    s.s->error = 1;
    EXPECT_EQ(cal_parseutil_print_string_ical(s.s, "abc"), 0);
    EXPECT_EQ(cal_parseutil_print_string_xml(s.s, "<abc>"), 0);
    EXPECT_EQ(cal_parseutil_print_char(',', s.s), 0);
    EXPECT_EQ(s.s->ptr, s.s->buf);
}

TEST(Escape, Converters) {
    struct Case {
        const char *in;
        int compress;
        const char *lf_only, *full;
    };
    const Case cases[] = {
        {"x\r\ny", 1, "x&#10;y", "x&#10;y"},
        {"x\r\ny", 0, "x&#10;&#10;y", "x&#10;&#10;y"},
        {"a/b\"", 0, "a/b\"", "a&#47;b&#34;"},
        {"<&'>", 0, "<&'>", "&#60;&#38;&#39;&#62;"},
        {"\r", 1, "&#10;", "&#10;"},  // a lone CR becomes a line feed
        {"\r\r\n", 1, "&#10;&#10;", "&#10;&#10;"},
        {"", 0, "", ""},
        {"\xC3\xA9", 0, "\xC3\xA9", "\xC3\xA9"},
    };
    for (const auto &c : cases) {
        char *a = nullptr;
        char *b = static_cast<char *>(std::malloc(8));  // freed by the converter
        EXPECT_EQ(cal_parseutil_convert_to_xml_string(c.in, &a, c.compress), 0);
        EXPECT_EQ(cal_parseutil_convert_to_xml_string_always(c.in, &b, c.compress), 0);
        EXPECT_STREQ(a, c.lf_only) << c.in;
        EXPECT_STREQ(b, c.full) << c.in;
        std::free(a);
        std::free(b);
    }
    char *out = nullptr;
    EXPECT_EQ(cal_parseutil_convert_to_xml_string(nullptr, &out, 0), 1);
    EXPECT_EQ(cal_parseutil_convert_to_xml_string("x", nullptr, 0), 2);
    EXPECT_EQ(cal_parseutil_convert_to_xml_string_helper(nullptr, nullptr, 0, 1), 1);
}

TEST(Escape, ConverterWorstCaseFillsTheWholeBuffer) {
    // Every byte escaped: exactly five bytes out per byte in, plus the
    // terminator.
    const std::string in(1 << 20, '&');
    char *out = nullptr;
    ASSERT_EQ(cal_parseutil_convert_to_xml_string_always(in.c_str(), &out, 0), 0);
    std::string expect;
    for (size_t i = 0; i < in.size(); ++i) expect += "&#38;";
    EXPECT_EQ(std::string(out), expect);
    std::free(out);
}

TEST(Escape, InPlaceCleaners) {
    struct Case {
        const char *in, *compressed, *validated;
    };
    const Case cases[] = {
        {"a\r\nb\r\n", "a\nb\n", "a\r\nb\r\n"},
        {"\r\r\n\n", "\r\n\n", "\r\r\n\n"},
        {"a\x01" "b\tc", "a\x01" "b\tc", "a b\tc"},
        {"\x1f\x7f\x80\x0b", "\x1f\x7f\x80\x0b", " \x7f\x80 "},
        {"", "", ""},
    };
    for (const auto &c : cases) {
        std::string a = c.in, b = c.in;
        compressNewLines(a.data());
        cal_parseutil_ValidateXMLData(b.data());
        EXPECT_STREQ(a.c_str(), c.compressed);
        EXPECT_EQ(b, c.validated);
    }
    compressNewLines(nullptr);
    cal_parseutil_ValidateXMLData(nullptr);
}

}  // namespace
