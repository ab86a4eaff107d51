/* A short tour: the version banner, a fresh GUID string and the MD5 of the
 * first argument. */
#include <orvutil.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char **argv) {
    const char *text = argc > 1 ? argv[1] : "";
    char guid[CAL_GUID_STRING128_SIZE];
    util_MD5_CTX ctx;
    int i;

    printf("banner: %s\n", orv_product_and_version());
    if (cal_GetGuidString(guid, sizeof guid) != 0) return 1;
    printf("guid:   %s\n", guid);
    util_MD5Init(&ctx);
    util_MD5Update(&ctx, (const unsigned char *)text, (unsigned int)strlen(text));
    util_MD5Final(&ctx);
    printf("md5:    ");
    for (i = 0; i < 16; i++) printf("%02x", ctx.digest[i]);
    printf("  \"%s\"\n", text);
    return 0;
}
