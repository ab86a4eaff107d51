// Logging set-up: the process's log handles, configured from the default
// configuration cache.
#include "orvutil/cal_log.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "orvutil/platform/array.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/zolog.h"

namespace {

int callog_initialised = 0;
array_t *callog_handles = nullptr;

// Numeric defaults are formatted into fields of this size, so every value
// reaches the facility as text.
constexpr int kNumberField = 20;

struct Setting {
    const char *option;
    const char *key;
    const char *text;  // the default when not a number
    int number;
};

// In the order the facility receives them.
constexpr Setting kSettings[] = {
    {"loglevel", "logfile.loglevel", "Notice", 0},
    {"logfacility", "logfile.logfacility", "General", 0},
    {"rollovertime", "logfile.rollovertime", nullptr, 86400},
    {"expirytime", "logfile.expirytime", nullptr, 604800},
    {"maxlogfilesize", "logfile.maxlogfilesize", nullptr, 2097152},
    {"maxlogfiles", "logfile.maxlogfiles", nullptr, 10},
    {"maxlogsize", "logfile.maxlogsize", nullptr, 20971520},
    {"minfreeddiskspace", "logfile.minfreediskspace", nullptr, 5242880},
    {"flushinterval", "logfile.flushinterval", nullptr, 60},
    {"buffersize", "logfile.buffersize", nullptr, 0},
};
constexpr int kSettingCount = sizeof kSettings / sizeof kSettings[0];

void *as_element(int handle) { return reinterpret_cast<void *>(static_cast<intptr_t>(handle)); }
int as_handle(const void *element) { return static_cast<int>(reinterpret_cast<intptr_t>(element)); }

void keep(int handle) { array_append(callog_handles, as_element(handle)); }

}  // namespace

extern "C" {

int callog_init(const char *servicename, const char *processname, int stderr_flag) noexcept {
    if (callog_initialised) return 0;
    callog_initialised = 1;
    static bool registered = false;
    if (!registered) registered = std::atexit(callog_uninit) == 0;
    callog_handles = array_new();
    const int handle = zolog_open(servicename, processname);
    if (handle != 0) {
        keep(handle);
        callog_default_config(0, servicename, processname);
    }
    callog_stderr(stderr_flag);
    return handle;
}

int callog_open(const char *servicename, const char *processname) noexcept {
    if (!callog_initialised) {
        callog_init(servicename, processname, 0);
        return 0;
    }
    const int handle = zolog_open(servicename, processname);
    if (handle != 0) {
        keep(handle);
        callog_default_config(handle, servicename, processname);
    }
    return handle;
}

void callog_close(int handle) noexcept {
    if (!callog_initialised) return;
    const int index = array_locate(callog_handles, as_element(handle), callog_find);
    if (index < 0) return;
    zolog_close(handle);
    array_removeat(callog_handles, index);
}

int callog_config(int handle, const char *name, const char *value) noexcept {
    if (!callog_initialised) return 0;
    const char *pairs[] = {name, value, nullptr, nullptr};
    return zolog_config(handle, pairs);
}

void callog_default_config(int handle, const char *servicename, const char *processname) noexcept {
    if (!callog_initialised) return;
    const char *logdir = config_get_string(config_getdefaultcache(), "logfile.logdir", "logs");
    const char *pairs[] = {"logdir", logdir, "servicename", servicename, "processname", processname, nullptr, nullptr};
    zolog_config(handle, pairs);
    callog_refresh_config(handle);
}

int callog_refresh_config(int handle) noexcept {
    if (!callog_initialised) return 0;
    config_cache *cache = config_getdefaultcache();
    char defaults[kSettingCount][kNumberField];
    const char *pairs[2 * kSettingCount + 2];
    for (int i = 0; i < kSettingCount; ++i) {
        const Setting &s = kSettings[i];
        const char *fallback = s.text;
        if (fallback == nullptr) {
            std::snprintf(defaults[i], kNumberField, "%i", s.number);
            fallback = defaults[i];
        }
        pairs[2 * i] = s.option;
        pairs[2 * i + 1] = config_get_string(cache, s.key, fallback);
    }
    pairs[2 * kSettingCount] = pairs[2 * kSettingCount + 1] = nullptr;
    return zolog_config(handle, pairs);
}

void callog_refresh(void) noexcept {
    if (!callog_initialised) return;
    for (int i = 0; i < array_count(callog_handles); ++i)
        callog_refresh_config(as_handle(array_elementat(callog_handles, i)));
    callog_refresh_config(0);
}

void callog_refresh_choice(int all) noexcept {
    if (!callog_initialised) return;
    if (all)
        callog_refresh();
    else
        callog_refresh_config(0);
}

int callog_stderr(int flag) noexcept {
    if (!callog_initialised) return 0;
    return zolog_setoptions(flag ? 0 : 1);
}

void callog_uninit(void) noexcept {
    if (!callog_initialised) return;
    callog_initialised = 0;
    for (int i = 0; i < array_count(callog_handles); ++i) zolog_close(as_handle(array_elementat(callog_handles, i)));
    array_delete(callog_handles);
    callog_handles = nullptr;
}

int callog_find(const void *a, const void *b) noexcept {
    const int x = as_handle(a), y = as_handle(b);
    return x < y ? -1 : x > y ? 1 : 0;
}

}  // extern "C"
