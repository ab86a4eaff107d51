// Configuration files: loading a 10,000-entry file with calconf_Open and
// reading every key, against a bare line splitter over the same bytes; the
// safe rewrite with calconf_CloseQuick; config_get_string on the default
// cache against a raw std::unordered_map look-up.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "orvutil/cal_conf.h"
#include "orvutil/platform/config.h"

namespace {

constexpr int kEntries = 10000;

std::string key(int i) {
    char name[32];
    std::snprintf(name, sizeof name, "service.module%03d.key%05d", i % 97, i);
    return name;
}

std::string value(int i) { return i % 3 == 0 ? "\"quoted, value " + std::to_string(i) + "\"" : std::to_string(i * 7); }

// A temporary directory holding the 10,000-entry file, made once.
struct Fixture {
    std::string dir, path, text;
    std::vector<std::string> keys;
    Fixture() {
        char templ[] = "/tmp/orvbench.XXXXXX";
        dir = mkdtemp(templ);
        path = dir + "/bench.conf";
        for (int i = 0; i < kEntries; ++i) {
            keys.push_back(key(i));
            text += keys.back() + " = " + value(i) + "\n";
        }
        write_text();
        config_setdefaultfile(path.c_str());
    }
    ~Fixture() {
        std::remove(path.c_str());
        rmdir(dir.c_str());
    }
    void write_text() const {
        FILE *f = std::fopen(path.c_str(), "w");
        std::fwrite(text.data(), 1, text.size(), f);
        std::fclose(f);
    }
};

Fixture &fixture() {
    static Fixture f;
    return f;
}

std::string read_whole(const std::string &path) {
    std::string out;
    const int fd = open(path.c_str(), O_RDONLY);
    char buf[65536];
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
    close(fd);
    return out;
}

void BM_orv_calconf_open_read_all(benchmark::State &state) {
    Fixture &f = fixture();
    for (auto _ : state) {
        calconf_handle *h = nullptr;
        if (calconf_Open(f.path.c_str(), &h) != 0) state.SkipWithError("open failed");
        size_t total = 0;
        for (const auto &k : f.keys) total += calconf_Get(h, k.c_str()) != nullptr;
        benchmark::DoNotOptimize(total);
        calconf_Close(&h, 1);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}

// Breakdown: the platform cache's own read of the file, which calconf_Open
// builds on.
void BM_platform_cache_fetch(benchmark::State &state) {
    Fixture &f = fixture();
    for (auto _ : state) {
        config_cache *cache = config_newcache();
        config_readdriver *driver = config_readdriver_fileinit(f.path.c_str());
        config_adddriver(cache, 0, driver);
        if (config_fetch(cache) != 0) state.SkipWithError("fetch failed");
        config_freecache(cache);
        driver->release(driver);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}

// The anchor: read the same bytes and split them into name/value pairs.
void BM_line_splitter(benchmark::State &state) {
    Fixture &f = fixture();
    for (auto _ : state) {
        const std::string text = read_whole(f.path);
        std::vector<std::pair<std::string, std::string>> entries;
        entries.reserve(kEntries);
        std::string_view rest(text);
        while (!rest.empty()) {
            const size_t end = rest.find('\n');
            std::string_view line = rest.substr(0, end);
            rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
            const size_t eq = line.find(" = ");
            if (eq == std::string_view::npos) continue;
            entries.emplace_back(line.substr(0, eq), line.substr(eq + 3));
        }
        size_t total = 0;
        for (const auto &e : entries) total += e.second.size();
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}

void BM_orv_calconf_closequick(benchmark::State &state) {
    Fixture &f = fixture();
    for (auto _ : state) {
        state.PauseTiming();
        calconf_handle *h = nullptr;
        calconf_Open(f.path.c_str(), &h);
        h->dirty = 1;  // force the rewrite of the same entries
        state.ResumeTiming();
        if (calconf_CloseQuick(&h, 0) != 0) state.SkipWithError("close failed");
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}

void BM_orv_config_get_string(benchmark::State &state) {
    Fixture &f = fixture();
    config_cache *cache = config_getdefaultcache();
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(config_get_string(cache, f.keys[i].c_str(), nullptr));
        if (++i == f.keys.size()) i = 0;
    }
}

void BM_unordered_map_find(benchmark::State &state) {
    Fixture &f = fixture();
    std::unordered_map<std::string, std::string> map;
    for (int k = 0; k < kEntries; ++k) map[f.keys[static_cast<size_t>(k)]] = value(k);
    size_t i = 0;
    for (auto _ : state) {
        // The key arrives as a C string, as it does for config_get_string.
        const char *key = f.keys[i].c_str();
        const auto it = map.find(key);
        benchmark::DoNotOptimize(it == map.end() ? nullptr : it->second.c_str());
        if (++i == f.keys.size()) i = 0;
    }
}

}  // namespace

BENCHMARK(BM_orv_calconf_open_read_all)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_platform_cache_fetch)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_line_splitter)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_orv_calconf_closequick)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_orv_config_get_string);
BENCHMARK(BM_unordered_map_find);

BENCHMARK_MAIN();
