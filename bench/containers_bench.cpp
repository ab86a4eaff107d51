// Dictionary parsing against std::unordered_map, the dictionary CRC-32
// against zlib's crc32, and the stream printf against snprintf.
#include <benchmark/benchmark.h>

#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "orvutil/cal_dict.h"
#include "orvutil/cal_strm.h"

namespace {

std::string query_string(std::vector<std::string> *names) {
    std::string q;
    for (int i = 0; i < 20; ++i) {
        const std::string name = "param" + std::to_string(i);
        names->push_back(name);
        q += (i ? "&" : "") + name + "=value-" + std::to_string(i * 7919);
    }
    return q;
}

void BM_caldict_parse_get(benchmark::State &state) {
    std::vector<std::string> names;
    const std::string q = query_string(&names);
    for (auto _ : state) {
        caldict *d = caldict_create_from_string(q.c_str(), '&');
        for (const auto &n : names) benchmark::DoNotOptimize(caldict_get(d, n.c_str(), 1));
        caldict_delete_all(d, std::free);
    }
}

void BM_unordered_map_parse_get(benchmark::State &state) {
    std::vector<std::string> names;
    const std::string q = query_string(&names);
    for (auto _ : state) {
        std::unordered_map<std::string, std::string> m;
        std::string_view s = q;
        while (!s.empty()) {
            const size_t amp = s.find('&');
            const std::string_view pair = s.substr(0, amp);
            const size_t eq = pair.find('=');
            if (eq == std::string_view::npos || eq == 0) break;
            m[std::string(pair.substr(0, eq))] = std::string(pair.substr(eq + 1));
            if (amp == std::string_view::npos) break;
            s.remove_prefix(amp + 1);
        }
        for (const auto &n : names) benchmark::DoNotOptimize(m.find(n));
    }
}

// 256 pairs of about 4 KiB each: 1 MiB of text.
struct CrcInput {
    caldict *dict = caldict_create();
    std::string flat;
    CrcInput() {
        for (int i = 0; i < 256; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "name%03d", i);
            std::string value(4096 - std::strlen(name), 'a');
            for (size_t k = 0; k < value.size(); ++k) value[k] = static_cast<char>('a' + (k * 31 + i) % 26);
            caldict_add(dict, name, strdup(value.c_str()), 1);
            flat += name + value;
        }
    }
    ~CrcInput() { caldict_delete_all(dict, std::free); }
};

void BM_caldict_crc32(benchmark::State &state) {
    CrcInput in;
    for (auto _ : state) benchmark::DoNotOptimize(caldict_get_CRC32(in.dict));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.flat.size()));
}

void BM_zlib_crc32(benchmark::State &state) {
    CrcInput in;
    for (auto _ : state) {
        uLong crc = crc32(0L, Z_NULL, 0);
        benchmark::DoNotOptimize(
            crc32(crc, reinterpret_cast<const Bytef *>(in.flat.data()), static_cast<uInt>(in.flat.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.flat.size()));
}

void BM_calstrm_printf(benchmark::State &state) {
    for (auto _ : state) {
        calstrm *s = calstrm_new(0);
        for (int i = 0; i < 100; ++i)
            calstrm_printf(s, "%s=%d;%x %c %lu|", "key", i, 0xbeefu + i, 'z', 1234567890UL + i);
        benchmark::DoNotOptimize(calstrm_getbuffer(s));
        calstrm_delete(s);
    }
}

void BM_snprintf_string(benchmark::State &state) {
    for (auto _ : state) {
        std::string out;
        for (int i = 0; i < 100; ++i) {
            char buf[128];
            const int n =
                std::snprintf(buf, sizeof buf, "%s=%d;%x %c %lu|", "key", i, 0xbeefu + i, 'z', 1234567890UL + i);
            out.append(buf, static_cast<size_t>(n));
        }
        benchmark::DoNotOptimize(out.data());
    }
}

}  // namespace

BENCHMARK(BM_caldict_parse_get);
BENCHMARK(BM_unordered_map_parse_get);
BENCHMARK(BM_caldict_crc32);
BENCHMARK(BM_zlib_crc32);
BENCHMARK(BM_calstrm_printf);
BENCHMARK(BM_snprintf_string);
BENCHMARK_MAIN();
