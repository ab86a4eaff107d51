// Error-code range test.
#include "orvutil/cal_errorHandler.h"

extern "C" {

int cal_checkErrorRange(int kind, int code) noexcept {
    switch (kind) {
        case 1: return code >= 11000 && code <= 11999 ? 1 : 0;
        case 2: return code >= 10000 && code <= 10999 ? 1 : 0;
        case 4: return code >= 5000 && code <= 5999 ? 1 : 0;
        default: return kind;
    }
}

}  // extern "C"
