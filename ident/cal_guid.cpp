// GUID generation and formatting.
#include "orvutil/cal_guid.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <pratom.h>

#include "orv/ascii.hpp"

#include "orvutil/platform/sys.h"

namespace {

PRInt32 guid_counter = 0;

void put_hex(char *out, const unsigned char *bytes, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        out[2 * i] = orv::kHexLower[bytes[i] >> 4];
        out[2 * i + 1] = orv::kHexLower[bytes[i] & 15];
    }
}

}  // namespace

extern "C" {

int cal_GenerateGUID(unsigned char *guid) noexcept {
    if (guid == nullptr) return 0;
    const uint32_t words[4] = {
        static_cast<uint32_t>(time(nullptr)),
        static_cast<uint32_t>(rand()),
        // The value after the increment, taken from the increment itself, so
        // two threads never store the same counter value.
        static_cast<uint32_t>(PR_AtomicIncrement(&guid_counter)),
        static_cast<uint32_t>(process_id()),
    };
    std::memcpy(guid, words, sizeof words);
    return 0;
}

int cal_strguid(char *buf, int size, const unsigned char *guid) noexcept {
    if (buf == nullptr || guid == nullptr || size < CAL_GUID_STRING_SIZE) return CAL_GUID_E_BUFFER;
    put_hex(buf, guid, CAL_GUID_SIZE);
    buf[2 * CAL_GUID_SIZE] = '\0';
    return 0;
}

int cal_strguid_128(char *buf, int size, const unsigned char *guid) noexcept {
    if (buf == nullptr || guid == nullptr || size < CAL_GUID_STRING128_SIZE) return CAL_GUID_E_BUFFER;
    std::memset(buf, '0', 2 * CAL_GUID_SIZE);
    put_hex(buf + 2 * CAL_GUID_SIZE, guid, CAL_GUID_SIZE);
    buf[4 * CAL_GUID_SIZE] = '\0';
    return 0;
}

int cal_GetGuidString(char *buf, int size) noexcept {
    unsigned char guid[CAL_GUID_SIZE];
    cal_GenerateGUID(guid);
    return cal_strguid_128(buf, size, guid);
}

}  // extern "C"
