#pragma once

#include <cstddef>
#include <cstdint>

// The bit timing of a CAN channel, and the record that sets it: 32 bytes, written as they stand to
// the channel's character device. Prescalers count from 1; widths and segments are in time quanta.
struct CanTimeParam {
    struct nominal {
        int32_t brp;
        int32_t sjw;
        int32_t sg1;
        int32_t sg2;
    };
    struct data {
        int32_t brp;
        int32_t sjw;
        int32_t sg1;
        int32_t sg2;
    };

    nominal norminalParam;
    data dataParam; // counts on CAN FD channels
};
static_assert(sizeof(CanTimeParam) == 32 && offsetof(CanTimeParam, dataParam) == 16);
