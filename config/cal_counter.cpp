// Counters of a server instance over the counter facility.
#include "orvutil/cal_counter.h"

#include <cstdint>
#include <cstdlib>

#include <prprf.h>

#include "orv/ascii.hpp"
#include "orvutil/platform/array.h"
#include "orvutil/platform/config.h"
#include "orvutil/platform/zolog.h"

namespace {

int initialised = 0;
array_t *calcounter_objects = nullptr;
array_t *calcounter_instances = nullptr;
// Handles dropped from the lists by the deletes: callers may still hold
// them, so they are closed only with the rest.
array_t *calcounter_dropped_objects = nullptr;
array_t *calcounter_dropped_instances = nullptr;

const char *shown(const char *name) { return name ? name : "(null)"; }

int same(const void *key, const void *element) { return key == element ? 0 : 1; }

void drop(array_t *list, array_t *dropped, void *handle) {
    int at = array_locate(list, handle, same);
    if (at >= 0) array_append(dropped, array_removeat(list, at));
}

template <typename Handle>
void close_all(array_t *&list, void (*close)(Handle *)) {
    for (int i = 0; i < array_count(list); ++i) close(static_cast<Handle *>(array_elementat(list, i)));
    array_delete(list);
    list = nullptr;
}

// Creates through the facility with the instance's registry and
// configuration; a registry that cannot be had gives 0 without a call.
bool create(const char *name, int flags, int mode, const char *instance, int slots, counterobject **object,
            counterinstance **inst) {
    calcounter_init();
    config_cache *defaults = config_getdefaultcache();
    countermsg_registry *registry =
        countermsg_get_registry(config_get_string(defaults, "local.instance.counter.path", "counter"), 1);
    if (!registry) return false;
    char *path =
        PR_smprintf("%s/%s/%s", config_get_string(defaults, "local.instancedir", "."), "config", "counter.conf");
    config_cache *config = countermsg_open_config(path);
    countermsg_create_instance(name, flags, mode, instance, slots, object, inst, config, registry);
    PR_smprintf_free(path);
    config_freecache(config);
    countermsg_free_registry(registry);
    return true;
}

}  // namespace

extern "C" {

void calcounter_init(void) noexcept {
    static bool registered = false;
    if (initialised) return;
    initialised = 1;
    if (!registered) registered = std::atexit(calcounter_uninit) == 0;
    if (counterlib_init() == 0) {
        calcounter_objects = array_new();
        calcounter_instances = array_new();
        calcounter_dropped_objects = array_new();
        calcounter_dropped_instances = array_new();
    }
}

void calcounter_uninit(void) noexcept {
    if (!initialised) return;
    initialised = 0;
    // Instances point into their objects' mappings: they go first.
    close_all(calcounter_instances, counterinstance_close);
    close_all(calcounter_dropped_instances, counterinstance_close);
    close_all(calcounter_objects, counterobject_close);
    close_all(calcounter_dropped_objects, counterobject_close);
}

counterobject *calcounter_createobject(const char *name, int flags, int mode) noexcept {
    counterobject *object = nullptr;
    if (!create(name, flags, mode, nullptr, 0, &object, nullptr)) return nullptr;
    if (object) array_append(calcounter_objects, object);
    return object;
}

counterinstance *calcounter_createinstance(const char *name, int flags, counterobject **out) noexcept {
    counterobject *object = nullptr;
    counterinstance *instance = nullptr;
    if (!create(name, flags, 0, "global", 100, &object, &instance)) return nullptr;
    if (object) array_append(calcounter_objects, object);
    if (instance) array_append(calcounter_instances, instance);
    if (out) *out = object;
    return instance;
}

counterinstance *calcounter_openinstance(counterobject *object, const char *name) noexcept {
    if (!object || !name) return nullptr;
    size_t n = 0;
    while (n < 6 && name[n]) ++n;
    if (orv::ascii_iequal(std::string_view(name, n), "global")) return nullptr;
    counterinstance *instance = nullptr;
    int status = counterinstance_open(object, name, 0, &instance);
    if (status != 0) {
        zolog(0, 52, "Unable to create counter instance (%s): %d", name, status);
        return nullptr;
    }
    array_append(calcounter_instances, instance);
    return instance;
}

counterhandle calcounter_getcounter(counterobject *object, const char *name) noexcept {
    counterhandle handle = 0;
    int status = object ? counterobject_getcounterinfo(object, name, &handle, nullptr, nullptr, nullptr) : 1;
    if (status != 0) zolog(0, 52, "Unable to get counter handle (%s): %d", shown(name), status);
    return status == 0 ? handle : 0;
}

int calcounter_deleteobject(counterobject *object) noexcept {
    drop(calcounter_objects, calcounter_dropped_objects, object);
    int status = counterinstance_delete(object, "global");
    if (status != 0)
        zolog(0, 52, "Unable to delete counter object (o_handle=0x%x): %d",
              static_cast<unsigned>(reinterpret_cast<uintptr_t>(object)), status);
    return status;
}

int calcounter_deleteinstance(counterobject *object, counterinstance *instance, const char *name) noexcept {
    const char *which = array_count(calcounter_instances) == 1 ? "global" : name;
    drop(calcounter_instances, calcounter_dropped_instances, instance);
    int status = counterinstance_delete(object, which);
    if (status != 0) zolog(0, 52, "Unable to delete counter instance (%s): %d", shown(which), status);
    return status;
}

}  // extern "C"
