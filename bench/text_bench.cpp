// iCalendar escape+fold against libical serialising a DESCRIPTION,
// url_Encode/url_Decode against libcurl's escape/unescape, and the XML
// converter against libxml2's special-character encoder. Each pair works on
// the same 1 MiB input.
#include <benchmark/benchmark.h>

#include <curl/curl.h>
#include <libical/ical.h>
#include <libxml/entities.h>

#include <cstdlib>
#include <string>

#include "orvutil/cal_parseutil.h"
#include "orvutil/url_encode_decode.h"

namespace {

constexpr size_t kSize = 1 << 20;

// Prose-like text: words, blanks, some punctuation that needs escaping and
// a line break now and then.
const std::string &text_input() {
    static const std::string text = [] {
        static const char *words[] = {"meeting",  "room", "agenda;", "notes,",    "calendar", "the",  "a",   "of",
                                      "<review>", "Q&A",  "team",    "schedule.", "\n",       "it's", "plan"};
        std::string t;
        unsigned x = 12345;
        while (t.size() < kSize) {
            x = x * 1103515245u + 12345u;
            t += words[(x >> 16) % 15];
            t += ' ';
        }
        t.resize(kSize);
        return t;
    }();
    return text;
}

void BM_orv_ical_escape_fold(benchmark::State &state) {
    const std::string &text = text_input();
    protstream *s = prot_new_memory(0);
    for (auto _ : state) {
        prot_memory_clear(s);
        cal_parseutil_print_string_ical(s, text.c_str());
        size_t len = 0;
        benchmark::DoNotOptimize(prot_memory_data(s, &len));
    }
    prot_free(s);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kSize));
}

void BM_libical_description(benchmark::State &state) {
    const std::string &text = text_input();
    icalproperty *prop = icalproperty_new_description(text.c_str());
    for (auto _ : state) {
        char *out = icalproperty_as_ical_string_r(prop);
        benchmark::DoNotOptimize(out);
        icalmemory_free_buffer(out);
    }
    icalproperty_free(prop);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kSize));
}

void BM_orv_url_encode(benchmark::State &state) {
    const std::string &text = text_input();
    for (auto _ : state) {
        char *out = url_Encode(text.c_str());
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kSize));
}

void BM_curl_escape(benchmark::State &state) {
    const std::string &text = text_input();
    CURL *curl = curl_easy_init();
    for (auto _ : state) {
        char *out = curl_easy_escape(curl, text.c_str(), static_cast<int>(text.size()));
        benchmark::DoNotOptimize(out);
        curl_free(out);
    }
    curl_easy_cleanup(curl);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kSize));
}

// The encoded input both decoders read: percent escapes only (no '+'), so
// both produce the original text.
const std::string &encoded_input() {
    static const std::string enc = [] {
        CURL *curl = curl_easy_init();
        char *e = curl_easy_escape(curl, text_input().c_str(), static_cast<int>(kSize));
        std::string out = e;
        curl_free(e);
        curl_easy_cleanup(curl);
        return out;
    }();
    return enc;
}

void BM_orv_url_decode(benchmark::State &state) {
    const std::string &enc = encoded_input();
    for (auto _ : state) {
        char *out = url_Decode(enc.c_str());
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(enc.size()));
}

void BM_curl_unescape(benchmark::State &state) {
    const std::string &enc = encoded_input();
    CURL *curl = curl_easy_init();
    for (auto _ : state) {
        int len = 0;
        char *out = curl_easy_unescape(curl, enc.c_str(), static_cast<int>(enc.size()), &len);
        benchmark::DoNotOptimize(out);
        curl_free(out);
    }
    curl_easy_cleanup(curl);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(enc.size()));
}

void BM_orv_xml_always(benchmark::State &state) {
    const std::string &text = text_input();
    for (auto _ : state) {
        char *out = nullptr;
        cal_parseutil_convert_to_xml_string_always(text.c_str(), &out, 0);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kSize));
}

void BM_libxml2_encode_special(benchmark::State &state) {
    const std::string &text = text_input();
    const auto *in = reinterpret_cast<const xmlChar *>(text.c_str());
    for (auto _ : state) {
        xmlChar *out = xmlEncodeSpecialChars(nullptr, in);
        benchmark::DoNotOptimize(out);
        xmlFree(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kSize));
}

}  // namespace

BENCHMARK(BM_orv_ical_escape_fold)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_libical_description)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_orv_url_encode)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_curl_escape)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_orv_url_decode)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_curl_unescape)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_orv_xml_always)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_libxml2_encode_special)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
