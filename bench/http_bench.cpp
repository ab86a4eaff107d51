// HTTP/1.0 GETs from nginx on loopback, a new connection per request for
// both clients: the library's client against libcurl's easy interface.
#include <benchmark/benchmark.h>

#include <curl/curl.h>

#include <cstdio>
#include <functional>
#include <string>

#include "orvnginx.hpp"
#include "orvutil/cal_http.h"

namespace {

constexpr size_t kSmall = 512, kLarge = 1 << 20;

// One web server for the whole run, with a small and a 1 MiB file.
const orvtest::Nginx &web() {
    static orvtest::Nginx server;
    static bool written = [] {
        orvtest::write_file(server.root() + "/small.txt", std::string(kSmall, 's'));
        orvtest::write_file(server.root() + "/large.bin", std::string(kLarge, 'L'));
        return true;
    }();
    (void)written;
    return server;
}

// One GET read in blocks: the bytes received, headers included.
size_t orv_get(const char *path) {
    calhttp_conn *conn = nullptr;
    size_t total = 0;
    if (calhttp_Open("127.0.0.1", static_cast<unsigned>(web().port()), &conn, nullptr) == 0 &&
        calhttp_SendGet(conn, path, nullptr) == 0) {
        char block[4096];
        while (calhttp_ReadRaw(conn, block, sizeof block) == 0) total += std::char_traits<char>::length(block);
    }
    calhttp_Close(&conn);
    return total;
}

size_t count_bytes(char *, size_t size, size_t n, void *total) {
    *static_cast<size_t *>(total) += size * n;
    return size * n;
}

// The same GET through one easy handle that never reuses its connection.
struct Curl {
    CURL *h = curl_easy_init();
    size_t total = 0;
    explicit Curl(const char *path, long buffer = 0) {
        if (buffer > 0) curl_easy_setopt(h, CURLOPT_BUFFERSIZE, buffer);
        std::string url = "http://127.0.0.1:" + std::to_string(web().port()) + path;
        curl_easy_setopt(h, CURLOPT_URL, url.c_str());
        curl_easy_setopt(h, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_0);
        curl_easy_setopt(h, CURLOPT_FORBID_REUSE, 1L);
        curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, count_bytes);
        curl_easy_setopt(h, CURLOPT_HEADERDATA, &total);
        curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, count_bytes);
        curl_easy_setopt(h, CURLOPT_WRITEDATA, &total);
    }
    ~Curl() { curl_easy_cleanup(h); }
    size_t get() {
        total = 0;
        return curl_easy_perform(h) == CURLE_OK ? total : 0;
    }
};

void run(benchmark::State &state, size_t body, const std::function<size_t()> &get) {
    if (!web().started()) return state.SkipWithError("nginx did not start");
    size_t bytes = 0;
    for (auto _ : state) {
        size_t n = get();
        if (n < body) return state.SkipWithError("short response");
        bytes += n;
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void BM_orv_small(benchmark::State &state) {
    run(state, kSmall, [] { return orv_get("/small.txt"); });
}
void BM_curl_small(benchmark::State &state) {
    Curl curl("/small.txt");
    run(state, kSmall, [&] { return curl.get(); });
}
void BM_orv_large(benchmark::State &state) {
    run(state, kLarge, [] { return orv_get("/large.bin"); });
}
void BM_curl_large(benchmark::State &state) {
    Curl curl("/large.bin");
    run(state, kLarge, [&] { return curl.get(); });
}

// The same read with libcurl's receive buffer as small as ours.
void BM_curl_large_1k(benchmark::State &state) {
    Curl curl("/large.bin", 1024);
    run(state, kLarge, [&] { return curl.get(); });
}

}  // namespace

// Wall-clock time: most of a request is spent waiting for the server.
BENCHMARK(BM_orv_small)->UseRealTime();
BENCHMARK(BM_curl_small)->UseRealTime();
BENCHMARK(BM_orv_large)->UseRealTime();
BENCHMARK(BM_curl_large)->UseRealTime();
BENCHMARK(BM_curl_large_1k)->UseRealTime();
BENCHMARK_MAIN();
