#include "common/GlobalEnums.h"

const char* NegtiveErrorCodeName(uint8_t code) {
    switch (code) {
#define X(name, value)                                                                             \
    case value:                                                                                    \
        return #name;
        NEGTIVE_ERROR_CODES(X)
#undef X
    default:
        return nullptr;
    }
}
