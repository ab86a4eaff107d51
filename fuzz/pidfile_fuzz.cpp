// The pid file reader: whatever the service's file holds, the three
// readers agree on whether it reads, and what they hand back is sound: a
// positive pid, a state text inside its buffer, a pid list ended by 0.
#include <orvutil/platform/pidfile.h>

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_io.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_io::quiet_setup("local.piddir = " + fuzz_io::file("run") + "\n");
    mkdir(fuzz_io::file("run").c_str(), 0700);
    fuzz_io::input_file("run/svc.pid", data, size);

    int pid = 0;
    char state[CONFIG_PIDFILE_STATE_SIZE + 1];
    state[CONFIG_PIDFILE_STATE_SIZE] = 'X';
    const int rc = config_readpidfile("svc", &pid, state);
    if (rc == 0 &&
        (pid <= 0 || state[CONFIG_PIDFILE_STATE_SIZE] != 'X' || std::strlen(state) >= CONFIG_PIDFILE_STATE_SIZE))
        abort();

    int *pids = reinterpret_cast<int *>(&pid);
    const int n = config_readpidfile_list("svc", &pids, "child_process");
    if ((n < 0) != (rc != 0) || (n <= 0 && pids != nullptr) || (n > 0 && (pids == nullptr || pids[n] != 0))) abort();
    for (int i = 0; i < n; ++i)
        if (pids[i] <= 0) abort();
    free(pids);

    const int stale = config_pidfile_stale("svc");
    if ((stale < 0) != (rc != 0) || stale > 1) abort();
    return 0;
}
