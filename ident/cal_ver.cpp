// The product-and-version banner.
#include "orvutil/cal_ver.h"

#include <prprf.h>

namespace {
char banner[255];
}

extern "C" char *orv_product_and_version(void) noexcept {
    PR_snprintf(banner, sizeof banner, "%s %s (built %s)", ORV_PRODUCT_NAME, ORV_RELEASE, __DATE__);
    return banner;
}
