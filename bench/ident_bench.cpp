// MD5 against OpenSSL's EVP MD5, GUID generation and formatting against
// libuuid's time-based UUIDs.
#include <benchmark/benchmark.h>

#include <openssl/evp.h>
#include <uuid/uuid.h>

#include <string>
#include <vector>

#include "orvutil/cal_guid.h"
#include "orvutil/utilmd5.h"

namespace {

std::vector<unsigned char> make_input(size_t n) {
    std::vector<unsigned char> data(n);
    for (size_t i = 0; i < n; ++i) data[i] = static_cast<unsigned char>(i * 131 + 7);
    return data;
}

void BM_orv_md5(benchmark::State &state) {
    const auto data = make_input(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        util_MD5_CTX ctx;
        util_MD5Init(&ctx);
        util_MD5Update(&ctx, data.data(), static_cast<unsigned>(data.size()));
        util_MD5Final(&ctx);
        benchmark::DoNotOptimize(ctx.digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_openssl_md5(benchmark::State &state) {
    const auto data = make_input(static_cast<size_t>(state.range(0)));
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    const EVP_MD *md5 = EVP_md5();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int len;
    for (auto _ : state) {
        EVP_DigestInit_ex(ctx, md5, nullptr);
        EVP_DigestUpdate(ctx, data.data(), data.size());
        EVP_DigestFinal_ex(ctx, digest, &len);
        benchmark::DoNotOptimize(digest);
    }
    EVP_MD_CTX_free(ctx);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_orv_guid_string(benchmark::State &state) {
    char buf[CAL_GUID_STRING128_SIZE];
    for (auto _ : state) {
        cal_GetGuidString(buf, sizeof buf);
        benchmark::DoNotOptimize(buf);
    }
}

void BM_uuid_generate_time_unparse(benchmark::State &state) {
    char buf[37];
    for (auto _ : state) {
        uuid_t id;
        uuid_generate_time(id);
        uuid_unparse(id, buf);
        benchmark::DoNotOptimize(buf);
    }
}

void BM_orv_guid_generate(benchmark::State &state) {
    unsigned char g[CAL_GUID_SIZE];
    for (auto _ : state) {
        cal_GenerateGUID(g);
        benchmark::DoNotOptimize(g);
    }
}

void BM_uuid_generate_time(benchmark::State &state) {
    for (auto _ : state) {
        uuid_t id;
        uuid_generate_time(id);
        benchmark::DoNotOptimize(id);
    }
}

}  // namespace

BENCHMARK(BM_orv_md5)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK(BM_openssl_md5)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK(BM_orv_guid_generate);
BENCHMARK(BM_uuid_generate_time);
BENCHMARK(BM_orv_guid_string);
BENCHMARK(BM_uuid_generate_time_unparse);

BENCHMARK_MAIN();
