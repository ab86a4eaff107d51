/* A minimal program built against an installed orvutil. */
#include <orvutil.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    char guid[65];
    array_t *a = array_new();
    strarray_append(a, "x");
    if (cal_GetGuidString(guid, sizeof guid) != 0 || strlen(guid) != 64 || array_count(a) != 1) {
        fprintf(stderr, "consumer: unexpected results\n");
        return 1;
    }
    strarray_free_and_destroy(a);
    printf("%s\n", orv_product_and_version());
    return 0;
}
