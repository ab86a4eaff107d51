// The logging facility against spdlog, same message, same file system:
// records per second to a file from one and four threads, each record
// written at once (ours: one write per record under the shared lock; spdlog:
// flushed after each record) and buffered (ours: "buffersize" 64 KiB;
// spdlog: its stdio buffer), rolling at 1 MiB (spdlog's rotating sink), and
// the cost of a call below the threshold.
#include <benchmark/benchmark.h>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "orvutil/platform/zolog.h"

namespace {

namespace fs = std::filesystem;

// A directory on the same file system for both, emptied between runs.
const std::string &bench_dir() {
    static const std::string dir = [] {
        char templ[] = "/tmp/orvlogbench.XXXXXX";
        std::string made = mkdtemp(templ);
        std::atexit([] { fs::remove_all(bench_dir()); });
        return made;
    }();
    return dir;
}

void clear_dir() {
    for (const auto &e : fs::directory_iterator(bench_dir())) fs::remove_all(e.path());
}

enum Mode { kEach, kBuffered, kRolling };

int ours(Mode mode) {
    clear_dir();
    const int h = zolog_open("svc", "proc");
    const char *pairs[] = {"logdir",         bench_dir().c_str(),
                           "loglevel",       "Notice",
                           "buffersize",     mode == kBuffered ? "65536" : "0",
                           "maxlogfilesize", mode == kRolling ? "1048576" : "0",
                           "maxlogfiles",    "5",
                           "maxlogsize",     "0",
                           "rollovertime",   "0",
                           nullptr,          nullptr};
    zolog_config(h, pairs);
    zolog_setoptions(ZOLOG_OPT_NOSTDERR);
    return h;
}

std::shared_ptr<spdlog::logger> anchor(Mode mode) {
    clear_dir();
    spdlog::drop("bench");
    const std::string path = bench_dir() + "/anchor.log";
    std::shared_ptr<spdlog::logger> logger;
    if (mode == kRolling)
        logger = spdlog::rotating_logger_mt("bench", path, 1048576, 5);
    else
        logger = spdlog::basic_logger_mt("bench", path, true);
    // The same line as ours: UTC stamp, severity, facility, names, pid.
    logger->set_pattern("%Y-%m-%dT%H:%M:%S.%eZ %l General svc/proc[%P] %v", spdlog::pattern_time_type::utc);
    logger->set_level(spdlog::level::info);
    if (mode != kBuffered) logger->flush_on(spdlog::level::trace);
    return logger;
}

int ours_handle = 0;
std::shared_ptr<spdlog::logger> anchor_logger;

void Ours(benchmark::State &state) {
    const Mode mode = static_cast<Mode>(state.range(0));
    if (state.thread_index() == 0) ours_handle = ours(mode);
    int i = 0;
    for (auto _ : state) zolog(ours_handle, 3, "request %d from %s took %d ms", i++, "client.example", 42);
    if (state.thread_index() == 0) {
        zolog_close(ours_handle);
        state.SetItemsProcessed(state.iterations() * state.threads());
    }
}

void Anchor(benchmark::State &state) {
    const Mode mode = static_cast<Mode>(state.range(0));
    if (state.thread_index() == 0) anchor_logger = anchor(mode);
    int i = 0;
    for (auto _ : state) anchor_logger->error("request {} from {} took {} ms", i++, "client.example", 42);
    if (state.thread_index() == 0) {
        anchor_logger->flush();
        state.SetItemsProcessed(state.iterations() * state.threads());
    }
}

// Arguments: 0 each record written at once, 1 buffered, 2 rolling at 1 MiB.
BENCHMARK(Ours)->Arg(kEach)->Arg(kBuffered)->Arg(kRolling)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(Anchor)->Arg(kEach)->Arg(kBuffered)->Arg(kRolling)->Threads(1)->Threads(4)->UseRealTime();

void OursFiltered(benchmark::State &state) {
    const int h = ours(kEach);
    for (auto _ : state) zolog(h, 7, "request %d from %s took %d ms", 1, "client.example", 42);
    zolog_close(h);
}
BENCHMARK(OursFiltered);

void AnchorFiltered(benchmark::State &state) {
    auto logger = anchor(kEach);
    for (auto _ : state) logger->debug("request {} from {} took {} ms", 1, "client.example", 42);
}
BENCHMARK(AnchorFiltered);

}  // namespace

BENCHMARK_MAIN();
