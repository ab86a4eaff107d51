#include <orvutil/cal_guid.h>
#include <orvutil/cal_ver.h>
#include <orvutil/utilmd5.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    char guid[CAL_GUID_STRING128_SIZE];               /* 65 bytes */
    cal_GetGuidString(guid, sizeof guid);             /* 32 '0' then 32 hex digits */
    printf("%zu hex digits\n", strlen(guid));         /* 64 hex digits */

    util_MD5_CTX ctx;
    util_MD5Init(&ctx);
    util_MD5Update(&ctx, (const unsigned char *)"abc", 3);
    util_MD5Final(&ctx);                              /* ctx.digest: 16 bytes */
    for (int i = 0; i < 16; i++)
        printf("%02x", ctx.digest[i]);                /* 900150983cd24fb0d6963f7d28e17f72 */
    printf("\n");

    printf("%.13s\n", orv_product_and_version());     /* Orvane 2005Q1 (then " (built <date>)") */
    return 0;
}
