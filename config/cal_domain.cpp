// The default mail domain from the default configuration cache.
#include "orvutil/cal_domain.h"

#include "orvutil/platform/config.h"

extern "C" {

int cal_get_default_domain(char **out) noexcept {
    if (out == nullptr || *out != nullptr) return CAL_DOMAIN_E_INVALIDARG;
    char *copy = config_get_stringcopy(config_getdefaultcache(), "dwp.defaultdomain", "");
    if (copy == nullptr) return CAL_DOMAIN_E_OUTOFMEMORY;
    *out = copy;
    return 0;
}

}  // extern "C"
