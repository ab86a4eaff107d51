// Counters: an increment through the hot path against a raw
// std::atomic<uint64_t>::fetch_add on the same mapped word, on one thread
// and on four threads each with its own counter (rows on their own cache
// lines); and the snapshot of an object of 100 counters (64 slots, the
// "global" one in use).
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "../platform/counter_file.hpp"
#include "orvutil/platform/counter.h"

namespace {

constexpr int kThreads = 4;
constexpr int kWide = 100;

// A registry in a temporary directory with two objects: "hot" (one counter,
// an instance per thread) and "wide" (100 counters).
struct Fixture {
    std::string dir;
    countermsg_registry *reg = nullptr;
    counterobject *hot = nullptr, *wide = nullptr;
    counterinstance *rows[kThreads] = {};
    counterhandle counter = 0;
    std::atomic<uint64_t> *raw[kThreads] = {};  // the same words, mapped again
    void *map = nullptr;
    size_t size = 0;

    Fixture() {
        char templ[] = "/tmp/orvbench.XXXXXX";
        dir = mkdtemp(templ);
        std::string text = "hot.hits = count\n";
        for (int i = 0; i < kWide; ++i) text += "wide.c" + std::to_string(i) + " = count\n";
        std::string conf_path = dir + "/counter.conf";
        FILE *f = std::fopen(conf_path.c_str(), "w");
        std::fwrite(text.data(), 1, text.size(), f);
        std::fclose(f);
        config_cache *conf = countermsg_open_config(conf_path.c_str());
        reg = countermsg_get_registry((dir + "/counter").c_str(), 1);
        countermsg_create_instance("hot", COUNTER_CREATE_FRESH, 0, nullptr, 8, &hot, nullptr, conf, reg);
        countermsg_create_instance("wide", COUNTER_CREATE_FRESH, 0, nullptr, 0, &wide, nullptr, conf, reg);
        config_freecache(conf);
        counterobject_getcounterinfo(hot, "hits", &counter, nullptr, nullptr, nullptr);
        // Slots 1.. in order of opening on a fresh file.
        for (int t = 0; t < kThreads; ++t) counterinstance_open(hot, ("t" + std::to_string(t)).c_str(), 0, &rows[t]);
        const auto l = orv::counter::layout_for(1, 8);
        int fd = open((dir + "/counter/hot.cnt").c_str(), O_RDWR);
        size = l.size;
        map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        for (int t = 0; t < kThreads; ++t)
            raw[t] =
                reinterpret_cast<std::atomic<uint64_t> *>(static_cast<char *>(map) + l.values + (t + 1) * l.row_stride);
    }
    ~Fixture() {
        munmap(map, size);
        for (counterinstance *i : rows) counterinstance_close(i);
        counterobject_close(hot);
        counterobject_close(wide);
        countermsg_free_registry(reg);
        std::filesystem::remove_all(dir);
    }
};

Fixture &fixture() {
    static Fixture f;
    return f;
}

// Through the inline hot path, or the exported function (for callers that
// cannot inline).
template <void (*add)(counterinstance *, counterhandle, int64_t)>
void BM_add(benchmark::State &state) {
    Fixture &f = fixture();
    counterinstance *row = f.rows[state.thread_index()];
    for (auto _ : state) add(row, f.counter, 1);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_TEMPLATE(BM_add, counter_add)->Threads(1)->Threads(kThreads);
BENCHMARK_TEMPLATE(BM_add, counterinstance_add)->Threads(1)->Threads(kThreads);

void BM_raw_fetch_add(benchmark::State &state) {
    Fixture &f = fixture();
    std::atomic<uint64_t> *word = f.raw[state.thread_index()];
    for (auto _ : state) word->fetch_add(1, std::memory_order_relaxed);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_raw_fetch_add)->Threads(1)->Threads(kThreads);

void BM_snapshot_100(benchmark::State &state) {
    Fixture &f = fixture();
    char names[8][COUNTER_NAME_SIZE];
    std::vector<uint64_t> values(8 * kWide);
    for (auto _ : state) benchmark::DoNotOptimize(counterobject_snapshot(f.wide, names, values.data(), 8));
}
BENCHMARK(BM_snapshot_100);

}  // namespace

BENCHMARK_MAIN();
