// orvadmin commands on identifiers, digests, the version banner and the
// configuration file in use.
#include <cstring>

#include "orvadmin.hpp"
#include "orvutil/cal_guid.h"
#include "orvutil/cal_ver.h"
#include "orvutil/platform/config.h"
#include "orvutil/utilmd5.h"

namespace orvadmin {

int cmd_guid(int, char **argv) {
    char text[CAL_GUID_STRING128_SIZE];
    if (cal_GetGuidString(text, sizeof text) != 0) return fail(argv[0], "no GUID");
    out("guid = %s\n", text);
    return 0;
}

int cmd_md5(int, char **) {
    const char *text = rest_of_line(1);
    util_MD5_CTX ctx;
    util_MD5Init(&ctx);
    util_MD5Update(&ctx, reinterpret_cast<const unsigned char *>(text), static_cast<unsigned>(std::strlen(text)));
    util_MD5Final(&ctx);
    char hex[33];
    static const char digits[] = "0123456789abcdef";
    for (int i = 0; i < 16; ++i) {
        hex[2 * i] = digits[ctx.digest[i] >> 4];
        hex[2 * i + 1] = digits[ctx.digest[i] & 15];
    }
    hex[32] = '\0';
    out("md5 = %s\n", hex);
    return 0;
}

int cmd_version(int, char **) {
    out("version = %s\n", orv_product_and_version());
    return 0;
}

int cmd_setting(int, char **argv) {
    const char *value = config_get_string(config_getdefaultcache(), argv[1], nullptr);
    if (!value) return fail(argv[0], "%s is not set in %s", argv[1], config_getdefaultfile());
    out("%s = %s\n", argv[1], value);
    return 0;
}

}  // namespace orvadmin
