// The escaping and encoding output read back by independent parsers: an
// iCalendar parser for the folded, escaped text and a URL decoder for the
// form encoding.
#include <gtest/gtest.h>

#include <curl/curl.h>
#include <libical/ical.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "orvutil/cal_parseutil.h"
#include "orvutil/url_encode_decode.h"

namespace {

// An event whose DESCRIPTION is text written by print_string_ical.
std::string event_with_description(const std::string &text) {
    protstream *s = prot_new_memory(0);
    prot_printf(s, "BEGIN:VCALENDAR\nVERSION:2.0\nPRODID:-//test//EN\nBEGIN:VEVENT\nUID:1\nDESCRIPTION:");
    cal_parseutil_print_string_ical(s, text.c_str());
    prot_printf(s, "\nEND:VEVENT\nEND:VCALENDAR\n");
    std::string out = prot_memory_data(s, nullptr);
    prot_free(s);
    return out;
}

// DESCRIPTION as the iCalendar parser reads it back.
std::string parsed_description(const std::string &ics) {
    icalparser *parser = icalparser_new();
    icalcomponent *root = icalparser_parse_string(ics.c_str());
    icalparser_free(parser);
    if (root == nullptr) return "<no component>";
    icalcomponent *event = icalcomponent_get_first_component(root, ICAL_VEVENT_COMPONENT);
    icalproperty *prop = event ? icalcomponent_get_first_property(event, ICAL_DESCRIPTION_PROPERTY) : nullptr;
    std::string out = prop ? icalproperty_get_description(prop) : "<no description>";
    icalcomponent_free(root);
    return out;
}

// Every raw LF in the body is a fold; the byte behind its space is ASCII.
void expect_folds_before_ascii(const std::string &ics) {
    const size_t from = ics.find("DESCRIPTION:");
    const size_t to = ics.find("\nEND:VEVENT");
    for (size_t at = ics.find('\n', from); at < to; at = ics.find('\n', at + 1)) {
        ASSERT_EQ(ics[at + 1], ' ');
        ASSERT_LT(static_cast<unsigned char>(ics[at + 2]), 0x80) << at;
    }
}

// Printable ASCII with line feeds, then long lines of multi-byte UTF-8
// characters that a fold must never split.
TEST(Peer, IcalendarParserReadsTextsBack) {
    std::vector<std::string> ascii(3, "\n"),
        utf8 = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x93\x85", "\xD0\x96", "a", " ", ",", "\xE6\x97\xA5"};
    for (char c = 0x20; c < 0x7f; ++c) ascii.emplace_back(1, c);
    std::mt19937 rng(2);
    for (int round = 0; round < 400; ++round) {
        const auto &pieces = round < 300 ? ascii : utf8;
        std::string text = "x";  // the parser drops blanks around a value
        for (size_t i = rng() % (round < 300 ? 600 : 2000); i > 0; --i) text += pieces[rng() % pieces.size()];
        text += 'x';
        const std::string ics = event_with_description(text);
        expect_folds_before_ascii(ics);
        ASSERT_TRUE(parsed_description(ics) == text) << round << "\n" << ics;
    }
}

TEST(Peer, CurlUnescapeDecodesUrlEncode) {
    CURL *curl = curl_easy_init();
    ASSERT_NE(curl, nullptr);
    std::mt19937 rng(5);
    for (int round = 0; round < 300; ++round) {
        std::string text(rng() % 300 + 1, ' ');
        for (auto &c : text) c = static_cast<char>(1 + rng() % 255);
        char *enc = url_Encode(text.c_str());
        ASSERT_NE(enc, nullptr);
        std::string form = enc;
        std::free(enc);
        std::replace(form.begin(), form.end(), '+', ' ');
        int len = 0;
        char *dec = curl_easy_unescape(curl, form.c_str(), static_cast<int>(form.size()), &len);
        ASSERT_NE(dec, nullptr);
        EXPECT_EQ(std::string(dec, static_cast<size_t>(len)), text) << round;
        curl_free(dec);
    }
    curl_easy_cleanup(curl);
}

}  // namespace
